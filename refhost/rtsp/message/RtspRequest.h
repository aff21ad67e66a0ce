#pragma once
// Tested by tests/refhost/rtsp/message/RequestReader_test.cpp.

#include <cstddef>
#include <string_view>
#include <vector>

namespace refhost
{

/// One request, as views into the buffer of its RequestReader, valid until the reader's next operation.
/// Reused for each request, so that it stops allocating.
struct RtspRequest
{
    struct Header
    {
        std::string_view name;
        std::string_view value;  ///< trimmed; folded values contain line ends
    };

    std::string_view method;
    std::string_view uri;
    std::string_view version;  ///< "RTSP/1.0" unless the reader reported another one
    std::vector<Header> headers;
    std::string_view body;

    /// Finds a header by its case-insensitive name, after `previous` or from the first.
    /// \returns null when there is none
    const Header* find(std::string_view name, const Header* previous = nullptr) const;

    /// The value of the first header of that name; empty when there is none.
    std::string_view value(std::string_view name) const;

    void clear();
};

}  // namespace refhost
