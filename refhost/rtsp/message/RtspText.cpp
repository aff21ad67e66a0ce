#include "refhost/rtsp/message/RtspText.h"

#include <charconv>

namespace refhost
{
namespace
{

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

}  // namespace

std::string_view RtspText::trim(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back()))
    {
        text.remove_suffix(1);
    }
    return text;
}

bool RtspText::equalsIgnoringCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
    {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        if (lower(a[i]) != lower(b[i]))
        {
            return false;
        }
    }
    return true;
}

std::string_view RtspText::cut(std::string_view& rest, char separator)
{
    bool quoted = false;
    for (std::size_t i = 0; i < rest.size(); ++i)
    {
        if (rest[i] == '"')
        {
            quoted = !quoted;
        }
        else if (rest[i] == '\\' && quoted)
        {
            ++i;
        }
        else if (rest[i] == separator && !quoted)
        {
            const std::string_view part = rest.substr(0, i);
            rest.remove_prefix(i + 1);
            return trim(part);
        }
    }
    const std::string_view part = rest;
    rest = {};
    return trim(part);
}

std::string_view RtspText::unquote(std::string_view text)
{
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
    {
        return text.substr(1, text.size() - 2);
    }
    return text;
}

std::optional<std::uint64_t> RtspText::number(std::string_view digits, std::uint64_t most)
{
    std::uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    if (digits.empty() || error != std::errc() || stop != end || value > most)
    {
        return std::nullopt;
    }
    return value;
}

bool RtspText::isToken(std::string_view text)
{
    constexpr std::string_view separators = "()<>@,;:\\\"/[]?={}";
    for (const char c : text)
    {
        if (c <= ' ' || c >= 127 || separators.find(c) != std::string_view::npos)
        {
            return false;
        }
    }
    return !text.empty();
}

void RtspText::appendNumber(std::string& out, std::uint64_t number)
{
    char digits[20];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, number);
    out.append(digits, end);
}

void RtspText::appendHex32(std::string& out, std::uint32_t number)
{
    constexpr char digits[] = "0123456789ABCDEF";
    for (int shift = 28; shift >= 0; shift -= 4)
    {
        out += digits[(number >> shift) & 15];
    }
}

}  // namespace refhost
