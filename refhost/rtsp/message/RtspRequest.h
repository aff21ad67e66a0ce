#pragma once
// Tested by tests/refhost/rtsp/message/RequestReader_test.cpp.

#include <cstddef>
#include <string_view>
#include <vector>

namespace refhost
{

/// One request, as views into the buffer of the RequestReader that found it: valid until the reader's next
/// operation. Used again for one request after the other, so that it allocates nothing in the long run.
struct RtspRequest
{
    struct Header
    {
        std::string_view name;
        std::string_view value;  ///< without blanks at its ends; folded lines may hold line ends inside
    };

    std::string_view method;
    std::string_view uri;
    std::string_view version;  ///< "RTSP/1.0" unless the reader reported another one
    std::vector<Header> headers;
    std::string_view body;

    /// Finds a header by its name, whatever its case, behind `previous` or from the first.
    /// \returns null when there is none (more)
    const Header* find(std::string_view name, const Header* previous = nullptr) const;

    /// The value of the first header of that name; empty when there is none.
    std::string_view value(std::string_view name) const;

    void clear();
};

}  // namespace refhost
