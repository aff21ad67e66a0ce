#pragma once

#include <string>

#include "refhost/base/Base64.h"
#include "refhost/base/ByteOrder.h"
#include "refhost/base/Hex.h"
#include "tests/refhost/rtp/payload/PayloadFixture.h"

namespace refhost::test
{

inline Bytes fromHex(const std::string& hex)
{
    const std::string bytes = *bytesOfHex(hex);
    return {bytes.begin(), bytes.end()};
}

inline Bytes joined(const std::vector<Bytes>& parts)
{
    Bytes all;
    for (const Bytes& part : parts)
    {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

/// As EncodedUnit::bytes.
inline Bytes prefixed(const std::vector<Bytes>& nalUnits)
{
    Bytes all;
    for (const Bytes& unit : nalUnits)
    {
        Bytes length(4);
        writeBig32(length.data(), static_cast<std::uint32_t>(unit.size()));
        all.insert(all.end(), length.begin(), length.end());
        all.insert(all.end(), unit.begin(), unit.end());
    }
    return all;
}

/// The units of an aggregate, each behind 16 bits of size, behind `header`.
inline Bytes aggregate(const Bytes& header, const std::vector<Bytes>& nalUnits)
{
    Bytes all = header;
    for (const Bytes& unit : nalUnits)
    {
        all.push_back(static_cast<std::uint8_t>(unit.size() >> 8U));
        all.push_back(static_cast<std::uint8_t>(unit.size()));
        all.insert(all.end(), unit.begin(), unit.end());
    }
    return all;
}

namespace h264
{

// Of x264: 320x240 and 322x242.
inline const Bytes sps = fromHex("6742c015da0507ec05a830303528000003000800000301e478b175");
inline const Bytes otherSps = fromHex("6742c015da05421e2223016a0c0c0d4a000003000200000300791e2c5d40");
inline const Bytes pps = fromHex("68ce0fc8");
inline const Bytes delimiter{0x09, 0x10};
inline const Bytes filler{0x0c, 0xff, 0xff, 0x80};
/// Recovery point with recovery_frame_cnt 0.
inline const Bytes recoveryPoint{0x06, 0x06, 0x01, 0xc4, 0x80};

/// A slice whose first bits say what matters: first_mb_in_slice 0 or not, and the type.
inline Bytes slice(std::uint8_t header, std::uint8_t firstBits, std::size_t size, unsigned seed)
{
    Bytes unit = counted(size, seed);
    unit[0] = header;
    unit[1] = firstBits;
    return unit;
}

inline Bytes idr(std::size_t size = 20, unsigned seed = 1)
{
    return slice(0x65, 0x88, size, seed);
}

/// first_mb_in_slice 0, slice_type 0.
inline Bytes p(std::size_t size = 10, unsigned seed = 2)
{
    return slice(0x41, 0xe0, size, seed);
}

/// first_mb_in_slice 0, slice_type 7.
inline Bytes intra(std::size_t size = 10, unsigned seed = 3)
{
    return slice(0x41, 0x88, size, seed);
}

/// Another slice of a frame: first_mb_in_slice 1, slice_type 5.
inline Bytes more(const Bytes& slice)
{
    Bytes unit = slice;
    unit[1] = 0x46;
    return unit;
}

/// The same with slice_type 7.
inline Bytes moreIntra(const Bytes& slice)
{
    Bytes unit = slice;
    unit[1] = 0x42;
    unit[2] = 0x00;
    return unit;
}

/// FU-A packets with bodies of at most `step` bytes.
inline std::vector<Bytes> fragments(const Bytes& unit, std::size_t step)
{
    std::vector<Bytes> packets;
    for (std::size_t at = 1; at < unit.size(); at += step)
    {
        const std::size_t end = std::min(at + step, unit.size());
        Bytes packet{static_cast<std::uint8_t>((unit[0] & 0xe0U) | 28U),
                     static_cast<std::uint8_t>((unit[0] & 0x1fU) | (at == 1 ? 0x80U : 0U) |
                                               (end == unit.size() ? 0x40U : 0U))};
        packet.insert(packet.end(), unit.begin() + static_cast<std::ptrdiff_t>(at),
                      unit.begin() + static_cast<std::ptrdiff_t>(end));
        packets.push_back(packet);
    }
    return packets;
}

inline PayloadDescription track(bool withSets)
{
    PayloadDescription track = described("H264", 90000, {{"packetization-mode", "1"}});
    if (withSets)
    {
        track.parameters["sprop-parameter-sets"] = "Z0LAFdoFB+wFqDAwNSgAAAMACAAAAwHkeLF1,aM4PyA==";
    }
    return track;
}

}  // namespace h264
}  // namespace refhost::test
