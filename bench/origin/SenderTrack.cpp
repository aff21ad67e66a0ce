#include "bench/origin/SenderTrack.h"

#include <string_view>

namespace rtsporigin
{
namespace
{

constexpr std::size_t interleavedHeader = 4;
constexpr std::size_t rtpHeader = 12;
constexpr std::uint64_t nanosecondsASecond = 1'000'000'000;

void put16(std::uint8_t* to, std::uint32_t value)
{
    to[0] = static_cast<std::uint8_t>(value >> 8);
    to[1] = static_cast<std::uint8_t>(value);
}

void put32(std::uint8_t* to, std::uint32_t value)
{
    put16(to, value >> 16);
    put16(to + 2, value);
}

/// SplitMix64: neighbouring seeds give unrelated numbers.
std::uint64_t mixed(std::uint64_t seed)
{
    seed += 0x9E3779B97F4A7C15;
    seed = (seed ^ seed >> 30) * 0xBF58476D1CE4E5B9;
    seed = (seed ^ seed >> 27) * 0x94D049BB133111EB;
    return seed ^ seed >> 31;
}

}  // namespace

SenderTrack::SenderTrack(int clockRate, std::uint64_t random)
    : clockRate_(clockRate),
      ssrc_(static_cast<std::uint32_t>(mixed(random))),
      timestampBase_(static_cast<std::uint32_t>(mixed(random) >> 32)),
      sequence_(static_cast<std::uint16_t>(mixed(random + 1)))
{
}

std::uint32_t SenderTrack::timestamp(std::chrono::nanoseconds capture) const
{
    const auto ns = static_cast<std::uint64_t>(capture.count());
    const auto rate = static_cast<std::uint64_t>(clockRate_);
    const std::uint64_t ticks =
        ns / nanosecondsASecond * rate + ns % nanosecondsASecond * rate / nanosecondsASecond;
    return timestampBase_ + static_cast<std::uint32_t>(ticks);
}

void SenderTrack::stamp(CannedUnit& unit, std::chrono::nanoseconds capture)
{
    const std::uint32_t time = timestamp(capture);
    for (const std::size_t place : unit.packets)
    {
        std::uint8_t* const packet = unit.bytes.data() + place;
        packet[1] = rtp_;
        put16(packet + interleavedHeader + 2, sequence_++);
        put32(packet + interleavedHeader + 4, time);
        put32(packet + interleavedHeader + 8, ssrc_);
    }
    const auto count = static_cast<std::uint32_t>(unit.packets.size());
    packets_ += count;
    octets_ += static_cast<std::uint32_t>(unit.bytes.size()) -
               count * static_cast<std::uint32_t>(interleavedHeader + rtpHeader);
}

Bytes SenderTrack::report(std::chrono::nanoseconds capture, std::chrono::nanoseconds wall) const
{
    constexpr std::string_view name = "camera";
    constexpr std::size_t reportSize = 28;
    constexpr std::size_t descriptionSize = 4 + 4 + 2 + name.size() + 4;  // ended by up to four zeros
    constexpr std::size_t paddedSize = descriptionSize / 4 * 4;
    constexpr std::uint64_t secondsFrom1900 = 2'208'988'800;
    Bytes bytes(interleavedHeader + reportSize + paddedSize);
    bytes[0] = '$';
    bytes[1] = rtcp_;
    put16(&bytes[2], reportSize + paddedSize);
    std::uint8_t* const report = &bytes[interleavedHeader];
    report[0] = 0x80;
    report[1] = 200;
    put16(report + 2, reportSize / 4 - 1);
    put32(report + 4, ssrc_);
    const auto ns = static_cast<std::uint64_t>(wall.count());
    put32(report + 8, static_cast<std::uint32_t>(ns / nanosecondsASecond + secondsFrom1900));
    put32(report + 12, static_cast<std::uint32_t>((ns % nanosecondsASecond << 32) / nanosecondsASecond));
    put32(report + 16, timestamp(capture));
    put32(report + 20, packets_);
    put32(report + 24, octets_);
    std::uint8_t* const description = report + reportSize;
    description[0] = 0x81;
    description[1] = 202;
    put16(description + 2, paddedSize / 4 - 1);
    put32(description + 4, ssrc_);
    description[8] = 1;
    description[9] = name.size();
    name.copy(reinterpret_cast<char*>(description + 10), name.size());
    return bytes;
}

}  // namespace rtsporigin
