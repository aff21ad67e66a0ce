#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace rtspload
{

/// One answer of the server.
struct RtspReply
{
    int status = 0;
    std::string_view head;  ///< status line and header lines
    std::string_view body;

    /// The value of the first header of this name (any case), without blanks around it; empty when there is
    /// none.
    std::string_view header(std::string_view name) const;
};

/// Receives the messages of a reader.
class RtspReaderSink
{
public:
    virtual ~RtspReaderSink() = default;
    /// Views in `reply` last until the return.
    virtual void onReply(const RtspReply& reply) = 0;
    virtual void onInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size) = 0;
};

/// Cuts an RTSP connection's bytes into answers and interleaved packets (RFC 2326 section 10.12).
class RtspReader
{
public:
    /// \returns false when the bytes are no RTSP; the connection is unusable then
    bool feed(const char* data, std::size_t size, RtspReaderSink& sink);

    /// Discards the rest of a former connection.
    void reset();

private:
    /// \returns how many bytes of `data` were used, -1 when they are no RTSP
    std::ptrdiff_t consume(const char* data, std::size_t size, RtspReaderSink& sink);

    std::vector<char> rest_;
};

}  // namespace rtspload
