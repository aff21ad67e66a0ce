#pragma once
// Tested by tests/refhost/net/http/HttpRequestHead_test.cpp.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace refhost
{

/// The head of an HTTP/1.x request: request line and header fields (RFC 7230, section 3). A value type.
struct HttpRequestHead
{
    /// \param head  the whole head with the empty line at its end; the caller bounds its size
    /// \returns nothing for any other text
    static std::optional<HttpRequestHead> parse(std::string_view head);

    /// The value of the first field of that name in any case; empty when there is none.
    std::string_view field(std::string_view name) const;
    bool has(std::string_view name) const;
    /// Whether `token` is in the comma-separated lists of all fields of that name, in any case.
    bool lists(std::string_view name, std::string_view token) const;

    std::string method;
    std::string target;
    int version = 11;  ///< 10 or 11: HTTP/1.0 or HTTP/1.1
    std::vector<std::pair<std::string, std::string>> fields;
    /// Of the body; nothing when it is not announced, or it comes in chunks.
    std::optional<std::uint64_t> contentLength;
    bool chunked = false;
};

}  // namespace refhost
