#pragma once

#include <cstdint>
#include <string_view>

namespace refhost
{

/// The part of a document that a Range header requests (RFC 9110, section 14.2). A value type.
struct ByteRange
{
    enum class Kind
    {
        whole,         ///< everything: no range, several, another unit, or a header that is none
        part,          ///< `first` and `count`
        unsatisfiable  ///< nothing of it lies in the document
    };

    /// \param header  of the request; empty: none
    /// \param size    of the document, bytes
    static ByteRange parse(std::string_view header, std::uint64_t size);

    Kind kind = Kind::whole;
    std::uint64_t first = 0;
    std::uint64_t count = 0;  ///< bytes
};

}  // namespace refhost
