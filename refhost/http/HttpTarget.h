#pragma once
// Tested by tests/refhost/http/HttpTarget_test.cpp.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace refhost
{

/// The target of an HTTP request in origin form (RFC 9112, section 3.2.1), decoded: the segments of its path and the
/// parameters of its query. A value type.
struct HttpTarget
{
    /// Max number of segments, and of parameters.
    static constexpr std::size_t maxParts = 64;

    /// \returns nothing for any other text, for wrong percent-encoding, for an encoded null character or slash, and for
    ///          more than `maxParts` segments or parameters
    static std::optional<HttpTarget> parse(std::string_view target);

    /// The first parameter of that name; nothing when there is none.
    std::optional<std::string> parameter(std::string_view name) const;

    /// "/a/b" has two; a slash at the end adds an empty one.
    std::vector<std::string> segments;
    std::vector<std::pair<std::string, std::string>> query;
};

}  // namespace refhost
