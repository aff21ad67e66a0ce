#pragma once

#include <cstddef>
#include <string>

namespace refhost
{
namespace test
{

/// The size of a JPEG file, by its frame header (ISO/IEC 10918-1, annex B). 0 for another file.
struct JpegSize
{
    int width = 0;
    int height = 0;

    static JpegSize of(const std::string& file)
    {
        const auto byte = [&file](std::size_t at) { return static_cast<unsigned char>(file[at]); };
        std::size_t at = 2;
        if (file.size() < 4 || byte(0) != 0xff || byte(1) != 0xd8)
        {
            return {};
        }
        while (at + 9 < file.size() && byte(at) == 0xff)
        {
            if (byte(at + 1) >= 0xc0 && byte(at + 1) <= 0xc2)
            {
                return {byte(at + 7) * 256 + byte(at + 8), byte(at + 5) * 256 + byte(at + 6)};
            }
            at += 2 + static_cast<std::size_t>(byte(at + 2) * 256 + byte(at + 3));
        }
        return {};
    }
};

}  // namespace test
}  // namespace refhost
