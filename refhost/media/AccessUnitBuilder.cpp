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

}  // namespace

AccessUnitBuilder::AccessUnitBuilder(Codec codec, Deliver deliver)
    : info_(infoOf(codec)),
      nalSyntax_(info_.keyFrames == CodecInfo::KeyFrames::all ? nullptr : &NalSyntax::of(codec)),
      deliver_(std::move(deliver))
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
        if (nalSyntax_ != nullptr)
        {
            look({packet + AccessUnit::rtpHeaderSize, size - AccessUnit::rtpHeaderSize});
        }
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

void AccessUnitBuilder::look(ByteSpan payload)
{
    if (payload.size < nalSyntax_->headerSize())
    {
        return;
    }
    NalSyntax::Fragment fragment{};
    switch (nalSyntax_->kindOf(payload))
    {
        case NalKind::aggregate:
            forEachAggregated(payload.from(nalSyntax_->headerSize()), nalSyntax_->headerSize(),
                              [this](ByteSpan unit) { note(nalSyntax_->kindOf(unit)); });
            break;
        case NalKind::fragment:
            if (nalSyntax_->readFragment(payload, fragment))
            {
                note(nalSyntax_->kindOf({fragment.header.data(), nalSyntax_->headerSize()}));
            }
            break;
        default:
            note(nalSyntax_->kindOf(payload));
    }
}

void AccessUnitBuilder::note(NalKind kind)
{
    hasParameterSet_ = hasParameterSet_ || kind == NalKind::sequenceSet;
    hasKeyFrame_ = hasKeyFrame_ || kind == NalKind::keySlice;
}

}  // namespace refhost
