#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// What the configuration keeps instead of a password: the text of `password-hash`. A value type; holds no
/// password, but what it holds for Digest is as good as one.
///
///     for:59ff4d2f0d6e7b36 md5:<32 digits> sha-256:<64 digits> crypt:$y$j9T$…$…
///
/// The first three serve Digest (the HA1 of RFC 7616, section 3.4.2) and belong to one user name in one realm;
/// `crypt` serves Basic, for any name. Either may be missing.
struct PasswordHash
{
    static constexpr std::size_t maxSize = 512;

    std::string binding;  ///< to the user name and realm; empty without Digest
    std::string md5;      ///< lower-case hexadecimal
    std::string sha256;   ///< lower-case hexadecimal
    std::string crypt;    ///< memory-hard (yescrypt), as crypt(5) writes it; empty: none

    /// \returns nothing for a text of another form
    static std::optional<PasswordHash> parse(std::string_view text);
    std::string text() const;

    /// What `binding` is for a user in a realm.
    static std::string bindingOf(std::string_view user, std::string_view realm);

    /// Whether Digest can be answered with it.
    bool servesDigest() const
    {
        return !md5.empty();
    }
};

}  // namespace refhost
