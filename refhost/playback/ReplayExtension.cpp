#include "refhost/playback/ReplayExtension.h"

#include <algorithm>
#include <array>
#include <memory>

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr std::uint8_t extensionBit = 0x10;

std::array<std::uint8_t, ReplayExtension::size> written(const ReplayExtension& fields)
{
    constexpr std::uint32_t words = 3;
    std::array<std::uint8_t, ReplayExtension::size> bytes{};
    writeBig32(&bytes[0], std::uint32_t{ReplayExtension::identifier} << 16U | words);
    const NtpTime ntp(fields.recorded);
    writeBig32(&bytes[4], ntp.wholeSeconds());
    writeBig32(&bytes[8], ntp.fraction());
    bytes[12] = static_cast<std::uint8_t>((fields.cleanPoint ? 0x80 : 0) | (fields.endOfRange ? 0x40 : 0) |
                                          (fields.discontinuity ? 0x20 : 0));
    bytes[13] = fields.playSequence;
    return bytes;
}

}  // namespace

AccessUnitPtr ReplayExtension::addTo(const AccessUnit& unit) const
{
    if (unit.packets.empty())
    {
        return std::make_shared<AccessUnit>(unit);
    }
    auto extended = std::make_shared<AccessUnit>();
    extended->bytes.reserve(unit.bytes.size() + size);
    extended->packets = unit.packets;
    extended->payloadBytes = unit.payloadBytes;
    extended->rtpTimestamp = unit.rtpTimestamp;
    extended->captureTime = unit.captureTime;
    extended->keyFrame = unit.keyFrame;
    const auto extension = written(*this);
    const std::size_t behindHeader = unit.packets[0].offset + AccessUnit::rtpHeaderSize;
    const auto place = unit.bytes.begin() + static_cast<std::ptrdiff_t>(behindHeader);
    extended->bytes.assign(unit.bytes.begin(), place);
    extended->bytes.insert(extended->bytes.end(), extension.begin(), extension.end());
    extended->bytes.insert(extended->bytes.end(), place, unit.bytes.end());
    extended->bytes[unit.packets[0].offset] |= extensionBit;
    extended->packets[0].size += size;
    for (std::size_t i = 1; i < extended->packets.size(); ++i)
    {
        extended->packets[i].offset += size;
    }
    return extended;
}

}  // namespace refhost
