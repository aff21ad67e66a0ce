#include "bench/load/PictureStart.h"

namespace rtspload
{
namespace
{

PictureStart ofH264Unit(int type)
{
    if (type == 5)
    {
        return PictureStart::keyFrame;
    }
    return type >= 1 && type <= 4 ? PictureStart::other : PictureStart::unknown;
}

PictureStart ofH265Unit(int type)
{
    if (type >= 16 && type <= 21)
    {
        return PictureStart::keyFrame;
    }
    return type <= 9 ? PictureStart::other : PictureStart::unknown;
}

PictureStart ofH264(const std::uint8_t* payload, std::size_t size)
{
    const int type = payload[0] & 0x1f;
    if (type == 28)
    {
        const bool first = size > 1 && (payload[1] & 0x80) != 0;
        return first ? ofH264Unit(payload[1] & 0x1f) : PictureStart::unknown;
    }
    if (type != 24)
    {
        return ofH264Unit(type);
    }
    for (std::size_t at = 1; at + 2 < size;)
    {
        const PictureStart start = ofH264Unit(payload[at + 2] & 0x1f);
        if (start != PictureStart::unknown)
        {
            return start;
        }
        at += 2 + (static_cast<std::size_t>(payload[at]) << 8 | payload[at + 1]);
    }
    return PictureStart::unknown;
}

PictureStart ofH265(const std::uint8_t* payload, std::size_t size)
{
    const int type = payload[0] >> 1 & 0x3f;
    if (type == 49)
    {
        const bool first = size > 2 && (payload[2] & 0x80) != 0;
        return first ? ofH265Unit(payload[2] & 0x3f) : PictureStart::unknown;
    }
    if (type != 48)
    {
        return ofH265Unit(type);
    }
    for (std::size_t at = 2; at + 2 < size;)
    {
        const PictureStart start = ofH265Unit(payload[at + 2] >> 1 & 0x3f);
        if (start != PictureStart::unknown)
        {
            return start;
        }
        at += 2 + (static_cast<std::size_t>(payload[at]) << 8 | payload[at + 1]);
    }
    return PictureStart::unknown;
}

}  // namespace

PictureStart pictureStart(std::string_view encoding, const std::uint8_t* payload, std::size_t size)
{
    if (size == 0)
    {
        return PictureStart::unknown;
    }
    if (encoding == "H264")
    {
        return ofH264(payload, size);
    }
    return encoding == "H265" ? ofH265(payload, size) : PictureStart::unknown;
}

}  // namespace rtspload
