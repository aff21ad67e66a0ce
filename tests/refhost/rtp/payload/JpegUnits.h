#pragma once

#include "refhost/rtp/payload/JpegHeader.h"
#include "tests/refhost/rtp/payload/H264Units.h"

namespace refhost::test
{

/// A JPEG file as JpegHeader writes it, around a scan of `scanSize` bytes that nobody can decode.
inline Bytes jpegFile(JpegHeader header, std::size_t scanSize)
{
    if (header.quantizers.empty())
    {
        header.quantizers = counted(128, 1);
    }
    Bytes file;
    header.writeTo(file);
    const Bytes scan = counted(scanSize, 5);
    file.insert(file.end(), scan.begin(), scan.end());
    file.insert(file.end(), {0xff, 0xd9});
    return file;
}

inline JpegHeader jpegHeader(int width, int height, bool halfHeight = true, std::uint16_t restartInterval = 0)
{
    JpegHeader header;
    header.width = width;
    header.height = height;
    header.halfHeight = halfHeight;
    header.restartInterval = restartInterval;
    return header;
}

}  // namespace refhost::test
