#pragma once

#include "tests/refhost/rtp/payload/H264Units.h"

namespace refhost::test::h265
{

// Of x265: 322x242.
inline const Bytes vps = fromHex("40010c01ffff01600000030090000003000003003f959409");
inline const Bytes sps = fromHex(
    "42010101600000030090000003000003003fa00a8804071111965654a4c2fff000100016a0c0c0c080000003008000000f04");
inline const Bytes pps = fromHex("4401c073c189");
inline const Bytes delimiter{0x46, 0x01, 0x50};
inline const Bytes filler{0x4c, 0x01, 0xff, 0x80};
inline const Bytes information{0x4e, 0x01, 0x05, 0x01, 0xaa, 0x80};
/// As the parser of GStreamer makes it of these sets.
inline const Bytes record = fromHex(
    "0101600000009000000000003ff000fcfdf8f800000f03200001001840010c01ffff01600000030090000003000003003f959409"
    "21"
    "0001003242010101600000030090000003000003003fa00a8804071111965654a4c2fff000100016a0c0c0c08000000300800000"
    "0f"
    "0422000100064401c073c189");

inline Bytes slice(std::uint8_t type, std::size_t size, unsigned seed, bool first = true)
{
    Bytes unit = counted(size, seed);
    unit[0] = static_cast<std::uint8_t>(type << 1U);
    unit[1] = 1;
    unit[2] = first ? 0x80 : 0x40;
    return unit;
}

/// IDR_N_LP.
inline Bytes idr(std::size_t size = 20, unsigned seed = 1)
{
    return slice(20, size, seed);
}

/// TRAIL_R.
inline Bytes p(std::size_t size = 10, unsigned seed = 2)
{
    return slice(1, size, seed);
}

inline Bytes more(const Bytes& first)
{
    Bytes unit = first;
    unit[2] = 0x40;
    return unit;
}

/// FU packets with bodies of at most `step` bytes.
inline std::vector<Bytes> fragments(const Bytes& unit, std::size_t step)
{
    std::vector<Bytes> packets;
    for (std::size_t at = 2; at < unit.size(); at += step)
    {
        const std::size_t end = std::min(at + step, unit.size());
        Bytes packet{49 << 1, unit[1],
                     static_cast<std::uint8_t>((unit[0] >> 1U) | (at == 2 ? 0x80U : 0U) |
                                               (end == unit.size() ? 0x40U : 0U))};
        packet.insert(packet.end(), unit.begin() + static_cast<std::ptrdiff_t>(at),
                      unit.begin() + static_cast<std::ptrdiff_t>(end));
        packets.push_back(packet);
    }
    return packets;
}

inline PayloadDescription track(bool withSets)
{
    PayloadDescription track = described("H265", 90000);
    if (withSets)
    {
        track.parameters["sprop-vps"] = base64Of(vps.data(), vps.size());
        track.parameters["sprop-sps"] = base64Of(sps.data(), sps.size());
        track.parameters["sprop-pps"] = base64Of(pps.data(), pps.size());
    }
    return track;
}

}  // namespace refhost::test::h265
