#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace refhost
{

/// The bytes as text in the common alphabet with padding (RFC 4648, section 4).
std::string base64Of(const std::uint8_t* data, std::size_t size);

/// The bytes that such a text is; its padding may be missing.
/// \returns nothing for another text
std::optional<std::vector<std::uint8_t>> bytesOfBase64(std::string_view text);

}  // namespace refhost
