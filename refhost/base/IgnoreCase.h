#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace refhost
{

// Protocols ignore the case of A to Z only, independent of the locale.

constexpr char lowerCase(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

inline std::string lowerCase(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
    {
        c = lowerCase(c);
    }
    return result;
}

/// Whether two texts are equal when the case of A to Z is ignored.
constexpr bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
    {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        if (lowerCase(a[i]) != lowerCase(b[i]))
        {
            return false;
        }
    }
    return true;
}

}  // namespace refhost
