#include "bench/load/SessionDescription.h"

namespace rtspload
{
namespace
{

bool startsWith(std::string_view text, std::string_view start)
{
    return text.compare(0, start.size(), start) == 0;
}

std::string resolve(std::string_view base, std::string_view control)
{
    if (control.empty() || control == "*")
    {
        return std::string(base);
    }
    if (startsWith(control, "rtsp://"))
    {
        return std::string(control);
    }
    std::string url(base);
    if (url.back() != '/')
    {
        url += '/';
    }
    return url.append(control);
}

}  // namespace

SessionDescription SessionDescription::parse(std::string_view sdp, std::string_view base)
{
    SessionDescription result;
    result.url = std::string(base);
    while (!sdp.empty())
    {
        const std::size_t end = sdp.find('\n');
        std::string_view line = sdp.substr(0, end);
        sdp.remove_prefix(end == std::string_view::npos ? sdp.size() : end + 1);
        if (!line.empty() && line.back() == '\r')
        {
            line.remove_suffix(1);
        }
        if (startsWith(line, "m="))
        {
            result.tracks.push_back({std::string(line.substr(2, line.find(' ') - 2)), "", "", ""});
        }
        else if (startsWith(line, "a=control:"))
        {
            const std::string url = resolve(base, line.substr(10));
            (result.tracks.empty() ? result.url : result.tracks.back().url) = url;
        }
        else if (startsWith(line, "a=key-mgmt:") && !result.tracks.empty())
        {
            result.tracks.back().keyManagement = std::string(line.substr(11));
        }
        else if (startsWith(line, "a=rtpmap:") && !result.tracks.empty())
        {
            const std::size_t blank = line.find(' ');
            if (blank != std::string_view::npos)
            {
                const std::string_view name = line.substr(blank + 1);
                result.tracks.back().encoding = std::string(name.substr(0, name.find('/')));
            }
        }
    }
    return result;
}

}  // namespace rtspload
