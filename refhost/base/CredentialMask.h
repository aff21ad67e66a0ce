#pragma once
// Tested by tests/refhost/base/Log_test.cpp.

#include <cstddef>
#include <string>
#include <string_view>

namespace refhost
{

/// Finds credentials in texts that are for everybody's eyes, and puts "***" in their place. Log has the rules for
/// its callers, and Log_test tests them. Threads: any.
class CredentialMask
{
public:
    /// What Log::mask() does.
    static std::string mask(std::string_view text);
    /// What Log::maskUrl() does.
    static std::string maskUrl(std::string_view url);
    /// What Log::userInfo() does.
    static std::string_view userInfo(std::string_view url);

    /// What Log::hide() does.
    static void hide(std::string_view secret);
    static constexpr std::size_t maxHidden = 4096;

    /// At most `longest` bytes from the start of `text`, so cut that mask() still finds every secret in them.
    static std::string cut(std::string_view text, std::size_t longest);
};

}  // namespace refhost
