#pragma once
// Tested by tests/refhost/base/Log_test.cpp.

#include <cstddef>
#include <string>
#include <string_view>

namespace refhost
{

/// Replaces credentials in texts meant for a log by "***". Log documents the rules. Threads: any.
class CredentialMask
{
public:
    /// As Log::mask().
    static std::string mask(std::string_view text);
    /// As Log::maskUrl().
    static std::string maskUrl(std::string_view url);
    /// As Log::userInfo().
    static std::string_view userInfo(std::string_view url);

    /// The URL with its user information, as userInfo() finds it, percent-encoded. Where that holds an unescaped
    /// '@', '/', '?' or '#', other programs take the rest of the password for a host, and name it in messages.
    static std::string escapedUserInfo(std::string_view url);

    /// As Log::hide().
    static void hide(std::string_view secret);
    static constexpr std::size_t maxHidden = 4096;

    /// The start of `text`, at most `maxBytes` bytes, cut so that mask() still finds every secret in it.
    static std::string cut(std::string_view text, std::size_t maxBytes);
};

}  // namespace refhost
