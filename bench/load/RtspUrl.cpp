#include "bench/load/RtspUrl.h"

#include <arpa/inet.h>

#include <charconv>
#include <stdexcept>

namespace rtspload
{

RtspUrl RtspUrl::parse(const std::string& text)
{
    static const std::string scheme = "rtsp://";
    if (text.compare(0, scheme.size(), scheme) != 0)
    {
        throw std::invalid_argument("not an rtsp:// URL: " + text);
    }
    const std::size_t end = text.find('/', scheme.size());
    std::string host = text.substr(scheme.size(), end == std::string::npos ? end : end - scheme.size());
    std::uint16_t port = 554;
    if (const std::size_t colon = host.find(':'); colon != std::string::npos)
    {
        const char* last = host.data() + host.size();
        const auto [stop, error] = std::from_chars(host.data() + colon + 1, last, port);
        if (error != std::errc() || stop != last)
        {
            throw std::invalid_argument("no port number in " + text);
        }
        host.resize(colon);
    }
    if (host == "localhost")
    {
        host = "127.0.0.1";
    }

    RtspUrl url;
    url.text = text;
    url.address.sin_family = AF_INET;
    url.address.sin_port = htons(port);
    if (inet_pton(AF_INET, host.c_str(), &url.address.sin_addr) != 1)
    {
        throw std::invalid_argument("the host must be a dotted IPv4 address: " + text);
    }
    if ((ntohl(url.address.sin_addr.s_addr) >> 24) != IN_LOOPBACKNET)
    {
        throw std::invalid_argument("refused: load is put on loopback addresses only, not on " + host);
    }
    return url;
}

}  // namespace rtspload
