#include "bench/load/FrameStart.h"

namespace rtspload
{
namespace
{

FrameStart ofH264Unit(int type)
{
    if (type == 5)
    {
        return FrameStart::keyFrame;
    }
    return type >= 1 && type <= 4 ? FrameStart::other : FrameStart::unknown;
}

FrameStart ofH265Unit(int type)
{
    if (type >= 16 && type <= 21)
    {
        return FrameStart::keyFrame;
    }
    return type <= 9 ? FrameStart::other : FrameStart::unknown;
}

FrameStart ofH264(const std::uint8_t* payload, std::size_t size)
{
    const int type = payload[0] & 0x1f;
    if (type == 28)
    {
        const bool first = size > 1 && (payload[1] & 0x80) != 0;
        return first ? ofH264Unit(payload[1] & 0x1f) : FrameStart::unknown;
    }
    if (type != 24)
    {
        return ofH264Unit(type);
    }
    for (std::size_t at = 1; at + 2 < size;)
    {
        const FrameStart start = ofH264Unit(payload[at + 2] & 0x1f);
        if (start != FrameStart::unknown)
        {
            return start;
        }
        at += 2 + (static_cast<std::size_t>(payload[at]) << 8 | payload[at + 1]);
    }
    return FrameStart::unknown;
}

FrameStart ofH265(const std::uint8_t* payload, std::size_t size)
{
    const int type = payload[0] >> 1 & 0x3f;
    if (type == 49)
    {
        const bool first = size > 2 && (payload[2] & 0x80) != 0;
        return first ? ofH265Unit(payload[2] & 0x3f) : FrameStart::unknown;
    }
    if (type != 48)
    {
        return ofH265Unit(type);
    }
    for (std::size_t at = 2; at + 2 < size;)
    {
        const FrameStart start = ofH265Unit(payload[at + 2] >> 1 & 0x3f);
        if (start != FrameStart::unknown)
        {
            return start;
        }
        at += 2 + (static_cast<std::size_t>(payload[at]) << 8 | payload[at + 1]);
    }
    return FrameStart::unknown;
}

}  // namespace

FrameStart frameStart(std::string_view encoding, const std::uint8_t* payload, std::size_t size)
{
    if (size == 0)
    {
        return FrameStart::unknown;
    }
    if (encoding == "H264")
    {
        return ofH264(payload, size);
    }
    return encoding == "H265" ? ofH265(payload, size) : FrameStart::unknown;
}

}  // namespace rtspload
