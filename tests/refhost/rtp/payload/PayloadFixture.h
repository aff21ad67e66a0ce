#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "refhost/rtp/payload/Depacketizer.h"
#include "refhost/rtp/payload/Packetizer.h"

namespace refhost::test
{

using Bytes = std::vector<std::uint8_t>;

/// Bytes of the payload of a packet of a unit.
inline Bytes payloadOf(const AccessUnit& unit, std::size_t packet)
{
    const std::uint8_t* const at = unit.bytes.data() + unit.packets[packet].offset;
    return {at + AccessUnit::rtpHeaderSize, at + unit.packets[packet].size};
}

inline bool markerOf(const AccessUnit& unit, std::size_t packet)
{
    return (unit.bytes[unit.packets[packet].offset + 1] & 0x80U) != 0;
}

inline std::vector<Bytes> payloadsOf(const AccessUnit& unit)
{
    std::vector<Bytes> payloads;
    for (std::size_t i = 0; i < unit.packets.size(); ++i)
    {
        payloads.push_back(payloadOf(unit, i));
    }
    return payloads;
}

inline PayloadDescription described(std::string encodingName, int clockRate, FormatParameters parameters = {},
                                    int channels = 1)
{
    return {std::move(encodingName), clockRate, channels, std::move(parameters)};
}

/// A depacketizer and what it delivered.
class Reception
{
public:
    explicit Reception(const PayloadDescription& track)
        : depacketizer(Depacketizer::make(
              track, [this](DepacketizedUnit&& unit) { units.push_back(std::move(unit)); }, error))
    {
    }

    /// \returns why it was refused; empty when it was taken
    std::string push(const Bytes& payload, std::uint32_t timestamp, bool marker, std::uint32_t lost = 0)
    {
        // Memory of exactly that size, so that sanitizers see a read beyond it.
        const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[payload.size()]);
        std::copy(payload.begin(), payload.end(), copy.get());
        RtpPacketView packet;
        packet.marker = marker;
        packet.timestamp = timestamp;
        packet.payload = copy.get();
        packet.payloadSize = payload.size();
        const char* const refused = depacketizer->push(packet, lost);
        return refused == nullptr ? "" : refused;
    }

    /// All packets of a unit as a sender sends them.
    void pushAll(const AccessUnit& unit)
    {
        for (std::size_t i = 0; i < unit.packets.size(); ++i)
        {
            EXPECT_EQ(push(payloadOf(unit, i), unit.rtpTimestamp, markerOf(unit, i)), "");
        }
    }

    std::string error;
    std::vector<DepacketizedUnit> units;
    std::unique_ptr<Depacketizer> depacketizer;
};

/// The access units that one unit is packed to; adds a failure where it is refused.
inline std::vector<std::shared_ptr<AccessUnit>> pack(Packetizer& packetizer, const EncodedUnit& unit,
                                                     std::uint32_t timestamp = 0)
{
    std::vector<std::shared_ptr<AccessUnit>> made;
    const char* const refused = packetizer.pack(unit, timestamp, made);
    EXPECT_EQ(refused, nullptr) << refused;
    return made;
}

inline Bytes counted(std::size_t size, unsigned start = 0)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
    {
        bytes[i] = static_cast<std::uint8_t>(start + i * 7 + i / 256);
    }
    return bytes;
}

}  // namespace refhost::test
