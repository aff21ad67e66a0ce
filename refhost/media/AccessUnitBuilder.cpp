#include "refhost/media/AccessUnitBuilder.h"

#include <utility>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr std::uint8_t rtpVersion2 = 0x80;
constexpr std::uint8_t markerBit = 0x80;

namespace h264
{
constexpr int idrSlice = 5;
constexpr int sequenceParameterSet = 7;
constexpr int stapA = 24;
constexpr int fuA = 28;
}  // namespace h264

namespace h265
{
constexpr int firstRandomAccess = 16;
constexpr int lastRandomAccess = 21;
constexpr int sequenceParameterSet = 33;
constexpr int aggregation = 48;
constexpr int fragmentation = 49;
}  // namespace h265

int h265Type(std::uint8_t firstByte)
{
    return firstByte >> 1 & 0x3f;
}

/// Calls `use` with the first byte of each NAL unit of an aggregation packet: 16 bits of size, then the unit.
template <class Use>
void forEachAggregated(const std::uint8_t* at, const std::uint8_t* end, Use use)
{
    while (end - at > 2)
    {
        const std::ptrdiff_t size = readBig16(at);
        at += 2;
        if (size == 0 || size > end - at)
        {
            return;
        }
        use(*at);
        at += size;
    }
}

}  // namespace

AccessUnitBuilder::AccessUnitBuilder(Codec codec, Deliver deliver)
    : info_(infoOf(codec)), deliver_(std::move(deliver))
{
}

bool AccessUnitBuilder::add(const std::uint8_t* packet, std::size_t size, MonotonicTime captureTime)
{
    if (size <= AccessUnit::rtpHeaderSize || packet[0] != rtpVersion2)
    {
        return false;
    }
    const std::uint32_t timestamp = readBig32(packet + 4);
    if (unit_ && unit_->rtpTimestamp != timestamp)
    {
        finish();
    }
    if (!unit_)
    {
        unit_ = std::make_shared<AccessUnit>();
        unit_->rtpTimestamp = timestamp;
        unit_->captureTime = captureTime;
    }
    dropping_ = dropping_ || unit_->bytes.size() + size > maxUnitBytes;
    if (!dropping_)
    {
        unit_->append(packet, size);
        look(packet + AccessUnit::rtpHeaderSize, size - AccessUnit::rtpHeaderSize);
    }
    if ((packet[1] & markerBit) != 0 || info_.unitEnd == CodecInfo::UnitEnd::packet)
    {
        finish();
    }
    return true;
}

void AccessUnitBuilder::reset()
{
    unit_.reset();
    dropping_ = false;
    hasParameterSet_ = false;
    hasKeyFrame_ = false;
}

void AccessUnitBuilder::finish()
{
    if (dropping_)
    {
        Log::limited(Log::Level::warning, "frames too large", "dropped a frame of more than {} bytes",
                     maxUnitBytes);
        return reset();
    }
    unit_->keyFrame = info_.keyFrames == CodecInfo::KeyFrames::all || (hasParameterSet_ && hasKeyFrame_);
    const AccessUnitPtr whole = std::move(unit_);
    reset();
    deliver_(whole);
}

void AccessUnitBuilder::look(const std::uint8_t* payload, std::size_t size)
{
    switch (info_.keyFrames)
    {
        case CodecInfo::KeyFrames::all:
            break;
        case CodecInfo::KeyFrames::h264:
            return lookH264(payload, size);
        case CodecInfo::KeyFrames::h265:
            return lookH265(payload, size);
    }
}

void AccessUnitBuilder::lookH264(const std::uint8_t* payload, std::size_t size)
{
    const auto note = [this](std::uint8_t header)
    {
        const int type = header & 0x1f;
        hasParameterSet_ = hasParameterSet_ || type == h264::sequenceParameterSet;
        hasKeyFrame_ = hasKeyFrame_ || type == h264::idrSlice;
    };
    const int type = payload[0] & 0x1f;
    if (type == h264::stapA)
    {
        forEachAggregated(payload + 1, payload + size, note);
    }
    else if (type == h264::fuA && size > 1)
    {
        note(payload[1]);
    }
    else
    {
        note(payload[0]);
    }
}

void AccessUnitBuilder::lookH265(const std::uint8_t* payload, std::size_t size)
{
    const auto noteType = [this](int type)
    {
        hasParameterSet_ = hasParameterSet_ || type == h265::sequenceParameterSet;
        hasKeyFrame_ = hasKeyFrame_ || (type >= h265::firstRandomAccess && type <= h265::lastRandomAccess);
    };
    const int type = h265Type(payload[0]);
    if (type == h265::aggregation && size > 2)
    {
        forEachAggregated(payload + 2, payload + size,
                          [&](std::uint8_t header) { noteType(h265Type(header)); });
    }
    else if (type == h265::fragmentation && size > 2)
    {
        noteType(payload[2] & 0x3f);
    }
    else
    {
        noteType(type);
    }
}

}  // namespace refhost
