#include "refhost/http/SignInCookie.h"

#include <algorithm>

#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

std::string_view nameOf(bool encrypted)
{
    return encrypted ? "__Host-ovrtspd" : "ovrtspd";
}

}  // namespace

std::string SignInCookie::read(const HttpRequestHead& head, bool encrypted)
{
    const std::string_view name = nameOf(encrypted);
    std::string found;
    for (const auto& [field, value] : head.fields)
    {
        if (!equalsIgnoringCase(field, "Cookie"))
        {
            continue;
        }
        std::string_view rest = value;
        while (!rest.empty())
        {
            const std::size_t end = std::min(rest.find(';'), rest.size());
            std::string_view pair = rest.substr(0, end);
            pair.remove_prefix(std::min(pair.find_first_not_of(' '), pair.size()));
            if (pair.size() > name.size() && pair.substr(0, name.size()) == name && pair[name.size()] == '=')
            {
                if (!found.empty())
                {
                    return "";
                }
                found = pair.substr(name.size() + 1);
            }
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    return found;
}

std::string SignInCookie::text(std::string_view token, bool encrypted)
{
    std::string text(nameOf(encrypted));
    text.append("=").append(token).append("; Path=/; HttpOnly; SameSite=Strict");
    text += encrypted ? "; Secure" : "";
    text += token.empty() ? "; Max-Age=0" : "";
    return text;
}

}  // namespace refhost
