#include "refhost/config/ConfigHints.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace refhost
{
namespace
{

struct Other
{
    std::string_view name;
    std::string_view here;
};

constexpr std::string_view location = "write location in [[camera.stream]]";
constexpr std::string_view top = "its keys stand at the top of the file, before the first section";
constexpr std::string_view retention = "write max-age, max-size or min-free in [recording]";

constexpr std::array<Other, 32> others{{
    {"url", location},
    {"uri", location},
    {"address", location},
    {"input", location},
    {"path", location},
    {"file", location},
    {"source-url", location},
    {"server", top},
    {"rtsp", top},
    {"global", top},
    {"general", top},
    {"host", "write listen at the top of the file"},
    {"bind", "write listen at the top of the file"},
    {"stream", "write [[camera.stream]] below its [[camera]]"},
    {"streams", "write [[camera.stream]] below its [[camera]]"},
    {"retention", retention},
    {"keep", retention},
    {"max-days", retention},
    {"recordings", "write [recording]"},
    {"storage", "write [recording]"},
    {"username", "write name in [[user]]"},
    {"login", "write [[user]]"},
    {"pass", "write password in [[user]]"},
    {"passwd", "write password in [[user]]"},
    {"fps", "write frame-rate in [[camera.stream]]"},
    {"framerate", "write frame-rate in [[camera.stream]]"},
    {"bitrate", "write bit-rate in [[camera.stream]]"},
    {"codec", "write video in [[camera.stream]]"},
    {"ssl", "write [tls]"},
    {"cert", "write certificate in [tls]"},
    {"loglevel", "write log-level at the top of the file"},
    {"debug", "write log-level = \"debug\" at the top of the file"},
}};

std::string_view trimmed(std::string_view text)
{
    const std::size_t start = text.find_first_not_of(" \t\r");
    const std::size_t end = text.find_last_not_of(" \t\r");
    return start == std::string_view::npos ? std::string_view() : text.substr(start, end + 1 - start);
}

std::string_view lineOf(std::string_view text, int line)
{
    std::size_t start = 0;
    for (int i = 1; i < line && start != std::string_view::npos; ++i)
    {
        start = text.find('\n', start);
        start += start == std::string_view::npos ? 0 : 1;
    }
    return start == std::string_view::npos ? "" : trimmed(text.substr(start, text.find('\n', start) - start));
}

bool isBare(std::string_view value)
{
    constexpr std::string_view quotes = "\"'[{";
    return !value.empty() && quotes.find(value.front()) == std::string_view::npos && value != "true" &&
           value != "false" &&
           std::any_of(value.begin(), value.end(),
                       [](char c) { return c != '-' && c != '+' && c != '_' && (c < '0' || c > '9'); });
}

}  // namespace

std::string ConfigHints::nameHere(std::string_view name)
{
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return c == '_' ? '-' : static_cast<char>(std::tolower(c)); });
    const auto found = std::find_if(others.begin(), others.end(),
                                    [&lower](const Other& each) { return each.name == lower; });
    return found == others.end() ? "" : std::string(found->here);
}

std::string ConfigHints::forSyntax(std::string_view text, int line)
{
    const std::string_view written = lineOf(text, line);
    const std::size_t equals = written.find('=');
    if (equals == std::string_view::npos || written.front() == '#')
    {
        return {};
    }
    const std::string_view value = trimmed(written.substr(equals + 1));
    if (value.empty())
    {
        return "the value is missing";
    }
    if (value.front() == '"' && value.find('\\') != std::string_view::npos)
    {
        return "in double quotes a backslash starts an escape: use single quotes, or \\\\";
    }
    const bool quoted = value.front() == '"' || value.front() == '\'';
    if (quoted && value.find(value.front(), 1) == std::string_view::npos)
    {
        return std::string("the quote is not closed: write ") + value.front() + " after the value";
    }
    return isBare(value) ? "text stands in quotes: KEY = \"VALUE\"" : "";
}

std::string ConfigHints::forHostOf(std::string_view url)
{
    const std::size_t start = url.find("://");
    if (start == std::string_view::npos)
    {
        return {};
    }
    const std::string_view rest = url.substr(start + 3);
    const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    const std::size_t at = authority.rfind('@');
    const std::string_view host = at == std::string_view::npos ? authority : authority.substr(at + 1);
    // With an unescaped slash in the password the host comes later.
    const bool later =
        rest.size() > authority.size() && rest.find('@', authority.size()) != std::string_view::npos;
    return (host.empty() || host.front() == ':') && !later ? "has no host: rtsp://HOST/PATH" : "";
}

}  // namespace refhost
