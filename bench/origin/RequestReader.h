#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace rtsporigin
{

/// One request of a client.
struct Request
{
    std::string method;
    std::string url;
    std::string head;  ///< all of it up to the blank line

    /// The value of the first header of this name (any case), without blanks around it; empty when there is
    /// none.
    std::string_view header(std::string_view name) const;
};

/// Cuts what a client sends into requests; leaves out interleaved packets and bodies. Threads: one.
class RequestReader
{
public:
    /// Max bytes of a head or a body; what sends more is no client.
    static constexpr std::size_t maxBytes = 65536;

    /// \param[out] requests  those that are complete now, appended
    /// \returns false when the bytes are no RTSP; the connection is of no use then
    bool feed(const char* data, std::size_t size, std::vector<Request>& requests);

private:
    /// \returns how many bytes are used now, 0 when more are needed, npos when they are no RTSP
    std::size_t consume(std::string_view bytes, std::vector<Request>& requests) const;

    std::string rest_;
};

}  // namespace rtsporigin
