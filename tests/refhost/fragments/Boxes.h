#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "refhost/media/ByteSpan.h"

namespace refhost
{
namespace test
{

/// A box of MP4 in somebody else's bytes.
struct Mp4Box
{
    std::string type;
    ByteSpan contents;

    /// The boxes in some bytes. Ends at one that is not whole.
    static std::vector<Mp4Box> allOf(ByteSpan bytes)
    {
        std::vector<Mp4Box> all;
        while (bytes.size >= 8)
        {
            const std::size_t size = number(bytes, 0, 4);
            if (size < 8 || size > bytes.size)
            {
                break;
            }
            all.push_back({std::string(bytes.begin() + 4, bytes.begin() + 8), bytes.first(size).from(8)});
            bytes = bytes.from(size);
        }
        return all;
    }

    /// The box at the end of a path such as "moov/mvex/trex".
    static std::optional<Mp4Box> find(ByteSpan bytes, const std::string& path)
    {
        const std::size_t slash = path.find('/');
        for (const Mp4Box& box : allOf(bytes))
        {
            if (box.type == path.substr(0, slash))
            {
                return slash == std::string::npos ? std::optional(box)
                                                  : find(box.contents, path.substr(slash + 1));
            }
        }
        return std::nullopt;
    }

    /// A big-endian number.
    static std::uint64_t number(ByteSpan bytes, std::size_t at, std::size_t size)
    {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i)
        {
            value = value << 8U | bytes[at + i];
        }
        return value;
    }

    std::uint64_t number(std::size_t at, std::size_t size) const
    {
        return number(contents, at, size);
    }
};

}  // namespace test
}  // namespace refhost
