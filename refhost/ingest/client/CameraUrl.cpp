#include "refhost/ingest/client/CameraUrl.h"

#include <algorithm>

#include "refhost/base/Decimal.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr int maxPort = 65535;
constexpr std::string_view plainScheme = "rtsp://";
constexpr std::string_view tlsScheme = "rtsps://";
constexpr std::string_view hexDigits = "0123456789ABCDEF";

int hexValue(char c)
{
    const char lower = lowerCase(c);
    return c >= '0' && c <= '9' ? c - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// Percent codes as what they stand for; unchanged where one is none.
std::string unescaped(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != '%')
        {
            result += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
        if (high < 0 || low < 0)
        {
            return std::string(text);
        }
        result += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return result;
}

/// As it may stand in a request line.
std::string escaped(std::string_view text)
{
    std::string result;
    for (const char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte < 0x7f)
        {
            result += c;
        }
        else
        {
            result += {'%', hexDigits[byte >> 4U], hexDigits[byte & 15U]};
        }
    }
    return result;
}

/// Whether the text starts with a scheme and "//".
bool isAbsolute(std::string_view text)
{
    const std::size_t colon = text.find(':');
    return colon != 0 && colon != std::string_view::npos && text.substr(colon, 3) == "://" &&
           std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(colon),
                       [](char c) { return lowerCase(c) >= 'a' && lowerCase(c) <= 'z'; });
}

/// Path and query behind an authority.
std::string targetOf(std::string_view rest)
{
    rest = rest.substr(0, rest.find('#'));
    return (rest.empty() || rest.front() != '/' ? "/" : "") + escaped(rest);
}

/// Path and query of an absolute URL.
std::string targetOfAbsolute(std::string_view url)
{
    const std::size_t authority = url.find("://") + 3;
    const std::size_t end = url.find_first_of("/?#", authority);
    return targetOf(end == std::string_view::npos ? "" : url.substr(end));
}

std::string_view pathOf(std::string_view target)
{
    return target.substr(0, target.find('?'));
}

}  // namespace

std::optional<CameraUrl> CameraUrl::parse(std::string_view text)
{
    CameraUrl url;
    url.tls = equalsIgnoringCase(text.substr(0, tlsScheme.size()), tlsScheme);
    url.port = url.tls ? defaultTlsPort : defaultPort;
    const std::string_view scheme = url.tls ? tlsScheme : plainScheme;
    if (text.size() > maxSize || !equalsIgnoringCase(text.substr(0, scheme.size()), scheme))
    {
        return std::nullopt;
    }
    const std::string_view login = Log::userInfo(text);
    text.remove_prefix(scheme.size());
    if (!login.empty())
    {
        const std::size_t colon = login.find(':');
        url.user = unescaped(login.substr(0, colon));
        url.password = colon == std::string_view::npos ? "" : unescaped(login.substr(colon + 1));
        text.remove_prefix(login.size() + 1);
    }
    std::size_t end = std::min(text.find_first_of("/?#"), text.size());
    url.target = targetOf(text.substr(end));
    std::string_view authority = text.substr(0, end);
    authority.remove_prefix(!authority.empty() && authority.front() == '@' ? 1 : 0);
    const bool bracketed = !authority.empty() && authority.front() == '[';
    end = bracketed ? authority.find(']') : std::min(authority.find(':'), authority.size());
    if (end == std::string_view::npos)
    {
        return std::nullopt;
    }
    url.host = authority.substr(bracketed ? 1 : 0, bracketed ? end - 1 : end);
    const std::string_view port = authority.substr(std::min(end + (bracketed ? 1 : 0), authority.size()));
    if (!port.empty() && port.front() != ':')
    {
        return std::nullopt;
    }
    if (port.size() > 1)
    {
        const auto number = parseDecimal<int>(port.substr(1), 1, maxPort);
        if (!number)
        {
            return std::nullopt;
        }
        url.port = *number;
    }
    if (url.host.empty() || escaped(url.host) != url.host)
    {
        return std::nullopt;
    }
    return url;
}

std::string CameraUrl::authority() const
{
    const bool bracketed = host.find(':') != std::string::npos;
    std::string text =
        std::string(tls ? tlsScheme : plainScheme) + (bracketed ? "[" : "") + host + (bracketed ? "]" : "");
    if (port != (tls ? defaultTlsPort : defaultPort))
    {
        text += ':' + std::to_string(port);
    }
    return text;
}

std::optional<CameraUrl> CameraUrl::redirected(std::string_view location) const
{
    if (location.empty() || location.size() > maxSize)
    {
        return std::nullopt;
    }
    std::optional<CameraUrl> next;
    if (isAbsolute(location))
    {
        next = parse(location);
        next = next && next->tls == tls ? next : std::nullopt;
    }
    else if (location.front() == '/')
    {
        next = *this;
        next->target = targetOf(location);
    }
    if (next)
    {
        next->user.clear();
        next->password.clear();
    }
    return next;
}

bool CameraUrl::sameServer(const CameraUrl& other) const
{
    return tls == other.tls && port == other.port && equalsIgnoringCase(host, other.host);
}

std::string CameraUrl::baseTarget(std::string_view header) const
{
    if (header.empty() || header.size() > maxSize)
    {
        return target;
    }
    if (isAbsolute(header))
    {
        return targetOfAbsolute(header);
    }
    return header.front() == '/' ? targetOf(header) : target;
}

std::string CameraUrl::controlTarget(const std::string& base, std::string_view control)
{
    if (control.empty() || control == "*")
    {
        return base;
    }
    if (isAbsolute(control))
    {
        return targetOfAbsolute(control);
    }
    const std::string text = escaped(control);
    const std::string_view path = pathOf(base);
    if (text.front() == '/')
    {
        // A path from the root names the presentation again; otherwise it is meant to be appended.
        const bool whole = path.size() > 1 && text.compare(0, path.size(), path) == 0;
        return whole ? text : base + text.substr(base.back() == '/' ? 1 : 0);
    }
    return base + (base.back() == '/' || text.front() == '?' ? "" : "/") + text;
}

}  // namespace refhost
