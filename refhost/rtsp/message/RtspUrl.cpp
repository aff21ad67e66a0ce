#include "refhost/rtsp/message/RtspUrl.h"

#include <algorithm>
#include <optional>
#include <string>

#include "refhost/base/Hex.h"
#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr std::string_view trackKey = "trackID=";

bool isControl(char c)
{
    return static_cast<unsigned char>(c) < ' ' || c == 127;
}

bool decode(std::string_view text, std::string& out)
{
    // The fast path: almost no request has percent codes.
    if (std::none_of(text.begin(), text.end(), [](char c) { return c == '%' || isControl(c); }))
    {
        out.assign(text);
        return true;
    }
    out.clear();
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        char c = text[i];
        if (c == '%')
        {
            const std::optional<std::string> coded = bytesOfHex(text.substr(i + 1, 2));
            if (!coded || coded->size() != 1)
            {
                return false;
            }
            c = coded->front();
            i += 2;
        }
        if (isControl(c))
        {
            return false;
        }
        out += c;
    }
    return true;
}

std::string_view withoutSlashesAtEnd(std::string_view text)
{
    while (!text.empty() && text.back() == '/')
    {
        text.remove_suffix(1);
    }
    return text;
}

/// Removes "trackID=…" from the end of `path`, if the last segment is one.
std::string_view takeTrack(std::string_view& path)
{
    path = withoutSlashesAtEnd(path);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path.substr(slash + 1, trackKey.size()) != trackKey)
    {
        return {};
    }
    const std::string_view track = path.substr(slash + 1);
    path = withoutSlashesAtEnd(path.substr(0, slash));
    return track;
}

/// Splits "rtsp://authority" off an absolute URL.
/// \returns false when it is no URL of ours
bool takeOrigin(std::string_view& text, std::string& base)
{
    const std::size_t mark = text.find("://");
    if (mark == std::string_view::npos)
    {
        return !text.empty() && text.front() == '/';
    }
    const std::string_view scheme = text.substr(0, mark);
    if (!equalsIgnoringCase(scheme, "rtsp") && !equalsIgnoringCase(scheme, "rtspu") &&
        !equalsIgnoringCase(scheme, "rtsps"))
    {
        return false;
    }
    std::string_view rest = text.substr(mark + 3);
    std::string_view authority = rest.substr(0, rest.find_first_of("/?"));
    rest.remove_prefix(authority.size());
    const std::size_t at = authority.rfind('@');
    if (at != std::string_view::npos)
    {
        authority.remove_prefix(at + 1);
    }
    if (authority.empty())
    {
        return false;
    }
    base.append(scheme).append("://").append(authority);
    text = rest;
    return true;
}

}  // namespace

std::optional<RtspUrl> RtspUrl::parse(std::string_view text)
{
    RtspUrl url;
    if (text == "*")
    {
        url.server = true;
        return url;
    }
    text = text.substr(0, text.find('#'));
    if (!takeOrigin(text, url.base))
    {
        return std::nullopt;
    }
    const std::size_t question = text.find('?');
    std::string_view query = question == std::string_view::npos ? std::string_view() : text.substr(question);
    std::string_view path = text.substr(0, question);
    std::string_view track = takeTrack(path);
    if (track.empty())
    {
        track = takeTrack(query);
    }
    url.query.assign(query.substr(query.empty() ? 0 : 1));
    url.base.append(path);
    while (!path.empty() && path.front() == '/')
    {
        path.remove_prefix(1);
    }
    if (!decode(path, url.presentation) || !decode(track, url.track))
    {
        return std::nullopt;
    }
    return url;
}

bool RtspUrl::authorizes(std::string_view requestUri, std::string_view digestUri)
{
    const auto request = parse(requestUri);
    const auto digest = parse(digestUri);
    return request && digest && request->server == digest->server &&
           request->presentation == digest->presentation &&
           (digest->track.empty() || digest->track == request->track);
}

bool RtspUrl::has(std::string_view parameter, std::string_view value) const
{
    std::string_view rest = query;
    while (!rest.empty())
    {
        const std::string_view entry = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
        const std::size_t equals = entry.find('=');
        if (equals != std::string_view::npos && entry.substr(0, equals) == parameter &&
            entry.substr(equals + 1) == value)
        {
            return true;
        }
    }
    return false;
}

void RtspUrl::setEncrypted()
{
    constexpr std::string_view plain = "rtsp://";
    if (equalsIgnoringCase(std::string_view(base).substr(0, plain.size()), plain))
    {
        base.replace(0, plain.size(), "rtsps://");
    }
}

}  // namespace refhost
