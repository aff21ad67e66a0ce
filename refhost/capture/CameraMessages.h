#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace refhost
{

/// One RTSP message of a camera: the answer to a request, or a request of its own.
struct CameraMessage
{
    int status = 0;  ///< 0 for a request
    std::string startLine;
    std::vector<std::pair<std::string, std::string>> headers;  ///< names in lower case
    std::string body;

    /// The value of the first header of that name; empty when there is none.
    /// \param name  in lower case
    std::string_view header(std::string_view name) const;
};

/// Cuts what an RTSP camera sends over its connection into messages and interleaved packets (RFC 2326,
/// sections 4 and 10.12), and holds what is not whole yet, within limits. Threads: one at a time.
class CameraMessages
{
public:
    static constexpr std::size_t maxHeaderBytes = 16384;  ///< first line and header lines together
    static constexpr std::size_t maxHeaders = 100;
    static constexpr std::size_t maxBodyBytes = 262144;

    enum class Next
    {
        incomplete,  ///< more bytes are needed
        message,
        packet,
        broken  ///< neither a message nor a packet, or beyond a limit: the rest cannot be read
    };

    /// Reads the first line and the header lines of a message.
    /// \param[out] out  without body
    /// \returns false when it is no message, or has too many headers
    static bool readHead(std::string_view head, CameraMessage& out);

    void append(const std::uint8_t* data, std::size_t size);

    /// Takes the next whole message or packet.
    Next next();

    /// The message that next() found; until the next call.
    CameraMessage& message()
    {
        return message_;
    }

    /// The packet that next() found; until the next call or append().
    int channel() const
    {
        return channel_;
    }
    const std::uint8_t* packet() const
    {
        return packet_;
    }
    std::size_t packetSize() const
    {
        return packetSize_;
    }

private:
    Next takeMessage();

    std::vector<std::uint8_t> bytes_;
    std::size_t at_ = 0;       ///< what stands before is done
    std::size_t scanned_ = 0;  ///< behind at_, without the end of the header lines
    CameraMessage message_;
    int channel_ = 0;
    const std::uint8_t* packet_ = nullptr;
    std::size_t packetSize_ = 0;
};

}  // namespace refhost
