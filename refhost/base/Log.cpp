#include "refhost/base/Log.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>

namespace refhost
{
namespace
{

constexpr std::array<std::string_view, 6> levelNames{"trace", "debug", "info", "warning", "error", "off"};
constexpr std::array<std::string_view, 10> secretNames{"password", "passwd", "pass",  "pwd",     "user-pw",
                                                       "proxy-pw", "secret", "token", "api_key", "apikey"};
constexpr std::size_t longestSecretName = 8;

spdlog::level::level_enum toSpdlog(Log::Level level)
{
    switch (level)
    {
        case Log::Level::trace:
            return spdlog::level::trace;
        case Log::Level::debug:
            return spdlog::level::debug;
        case Log::Level::info:
            return spdlog::level::info;
        case Log::Level::warning:
            return spdlog::level::warn;
        case Log::Level::error:
            return spdlog::level::err;
        case Log::Level::off:
            break;
    }
    return spdlog::level::off;
}

// Never destroyed: threads and static destructors may log until the process is gone.
spdlog::logger& logger()
{
    static spdlog::logger* const instance = []
    {
        auto* made = new spdlog::logger("ovrtspd", std::make_shared<spdlog::sinks::stderr_sink_mt>());
        made->set_pattern("%Y-%m-%dT%H:%M:%S.%e%z %-7l [%t] %v");
        made->flush_on(spdlog::level::trace);
        return made;
    }();
    return *instance;
}

bool isControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

void appendEscaped(std::string& out, char c)
{
    constexpr std::string_view digits = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    out += "\\x";
    out += digits[byte >> 4];
    out += digits[byte & 15];
}

bool isWordCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

bool equalIgnoringCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

bool isHostAndPort(std::string_view authority)
{
    if (!authority.empty() && authority.front() == '[')
    {
        return true;
    }
    const std::size_t colon = authority.rfind(':');
    return colon == std::string_view::npos ||
           authority.find_first_not_of("0123456789", colon + 1) == std::string_view::npos;
}

// Length of the user information at the start of `rest`, which follows "://"; 0 when there is none. A
// password with an unescaped '/' is found too: what stands before that '/' is then no host and port.
std::size_t userInfoLength(std::string_view rest)
{
    const std::string_view url = rest.substr(0, rest.find_first_of(" \t\r\n\"'<>"));
    const std::string_view authority = url.substr(0, url.find_first_of("/?#"));
    std::size_t at = authority.rfind('@');
    if (at == std::string_view::npos && !isHostAndPort(authority))
    {
        at = url.rfind('@');
    }
    return at == std::string_view::npos ? 0 : at;
}

// If a secret's value starts at `position` of `text`, its length, otherwise 0.
std::size_t secretLength(std::string_view text, std::size_t position)
{
    const auto skipBack = [text](std::size_t end, std::string_view skipped)
    { return end > 0 && skipped.find(text[end - 1]) != std::string_view::npos ? end - 1 : end; };
    std::size_t end = skipBack(skipBack(position, "\"'"), " ");
    if (end == 0 || text[end - 1] != '=')
    {
        return 0;
    }
    end = skipBack(end - 1, " ");
    std::size_t begin = end;
    while (begin > 0 && end - begin <= longestSecretName && isWordCharacter(text[begin - 1]))
    {
        --begin;
    }
    const std::string_view name = text.substr(begin, end - begin);
    const bool secret =
        std::any_of(secretNames.begin(), secretNames.end(),
                    [name](std::string_view known) { return equalIgnoringCase(name, known); });
    if (!secret)
    {
        return 0;
    }
    const char quote = text[position - 1];
    const std::string_view stops = quote == '"' ? "\"" : quote == '\'' ? "'" : " \t\r\n&\"'<>,;!";
    return std::min(text.find_first_of(stops, position), text.size()) - position;
}

// At most `longest` bytes from the start of `text`, so cut that mask() still finds every secret in them.
std::string cutForMasking(std::string_view text, std::size_t longest)
{
    constexpr std::string_view blanks = " \t\r\n\"'<>";
    if (text.size() <= longest)
    {
        return std::string(text);
    }
    const std::string_view kept = text.substr(0, longest);
    const std::size_t blank = kept.find_last_of(blanks);
    const std::size_t scheme = kept.find("://", blank == std::string_view::npos ? 0 : blank);
    const std::string_view beyond = text.substr(longest);
    const std::string_view sameWord = beyond.substr(0, beyond.find_first_of(blanks));
    if (scheme != std::string_view::npos && sameWord.find('@') != std::string_view::npos)
    {
        return std::string(kept.substr(0, scheme + 3)) + "***";
    }
    return std::string(kept);
}

bool startsAuthorization(std::string_view rest)
{
    constexpr std::string_view name = "authorization:";
    return rest.size() >= name.size() && equalIgnoringCase(rest.substr(0, name.size()), name);
}

}  // namespace

void Log::setLevel(Level level)
{
    logger().set_level(toSpdlog(level));
}

std::optional<Log::Level> Log::levelNamed(std::string_view name)
{
    const auto* const found = std::find(levelNames.begin(), levelNames.end(), name);
    if (found == levelNames.end())
    {
        return std::nullopt;
    }
    return static_cast<Level>(found - levelNames.begin());
}

bool Log::enabled(Level level)
{
    return level != Level::off && logger().should_log(toSpdlog(level));
}

void Log::write(Level level, std::string_view message)
{
    if (!enabled(level))
    {
        return;
    }
    if (std::none_of(message.begin(), message.end(), isControl))
    {
        logger().log(toSpdlog(level), spdlog::string_view_t(message.data(), message.size()));
        return;
    }
    std::string oneLine;
    for (const char c : message)
    {
        if (isControl(c))
        {
            appendEscaped(oneLine, c);
        }
        else
        {
            oneLine += c;
        }
    }
    logger().log(toSpdlog(level), oneLine);
}

std::string Log::safe(std::string_view text, std::size_t longest)
{
    // Masked before it is cut to `longest`, lest the cut hide the '@' that tells a password; cut roughly
    // before that, so that a huge text costs little.
    constexpr std::size_t longestExamined = 2048;
    const std::string masked = mask(cutForMasking(text, std::max(longestExamined, longest)));
    std::string out;
    for (const char c : masked)
    {
        if (out.size() >= longest)
        {
            return out + "…";
        }
        if (isControl(c) || static_cast<unsigned char>(c) > 126)
        {
            appendEscaped(out, c);
        }
        else
        {
            out += c;
        }
    }
    return out;
}

std::string Log::mask(std::string_view text)
{
    constexpr std::string_view stars = "***";
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();)
    {
        std::size_t hidden = 0;
        if (i >= 3 && text.substr(i - 3, 3) == "://")
        {
            hidden = userInfoLength(text.substr(i));
        }
        if (hidden == 0 && i > 0)
        {
            hidden = secretLength(text, i);
        }
        if (hidden > 0)
        {
            out += stars;
            i += hidden;
            continue;
        }
        if (startsAuthorization(text.substr(i)))
        {
            const std::size_t colon = text.find(':', i);
            const std::size_t end = std::min(text.find_first_of("\r\n", colon), text.size());
            out += text.substr(i, colon + 1 - i);
            out += ' ';
            out += stars;
            i = end;
            continue;
        }
        out += text[i++];
    }
    return out;
}

void Log::print(Level level, fmt::string_view format, fmt::format_args args)
{
    if (!enabled(level))
    {
        return;
    }
    // C++17 checks formats when they are used only; a faulty one must not end the program in a rare event.
    try
    {
        write(level, fmt::vformat(format, args));
    }
    catch (const fmt::format_error&)
    {
        write(level, std::string_view(format.data(), format.size()));
    }
}

}  // namespace refhost
