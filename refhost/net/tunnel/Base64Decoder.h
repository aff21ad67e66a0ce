#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace refhost
{

/// Decodes a stream of base64 (RFC 4648, section 4) in portions of any size.
///
/// Clients encode each request on its own, so padding may stand anywhere: it ends a group, and the next
/// character starts another one. Line ends, blanks and further padding between groups are skipped.
///
/// Threads: one at a time.
class Base64Decoder
{
public:
    /// Appends the bytes of `text` to `out`: at most three for every four characters.
    /// \returns false at a character that is not base64, or padding after a single character of a group. What
    ///          was decoded before it is appended, and every later call fails
    bool decode(std::string_view text, std::string& out);

private:
    bool add(char c, std::string& out);
    bool endGroup(std::string& out);

    std::uint32_t group_ = 0;
    unsigned digits_ = 0;  // of the group, 0 to 3
    bool failed_ = false;
};

}  // namespace refhost
