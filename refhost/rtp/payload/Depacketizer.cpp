#include "refhost/rtp/payload/Depacketizer.h"

#include <utility>

#include "refhost/base/IgnoreCase.h"
#include "refhost/rtp/payload/AacDepacketizer.h"
#include "refhost/rtp/payload/AudioDepacketizer.h"
#include "refhost/rtp/payload/JpegDepacketizer.h"
#include "refhost/rtp/payload/LatmDepacketizer.h"
#include "refhost/rtp/payload/NalDepacketizer.h"

namespace refhost
{
namespace
{

constexpr std::string_view latmName = "MP4A-LATM";

}  // namespace

std::unique_ptr<Depacketizer> Depacketizer::make(const PayloadDescription& track, Deliver deliver,
                                                 std::string& error)
{
    const std::optional<Codec> codec = codecOf(track.encodingName);
    if (!codec)
    {
        error = "media of type " + track.encodingName.substr(0, 32) + " cannot be read";
        return nullptr;
    }
    if (track.clockRate <= 0)
    {
        error = "the description has no clock rate";
        return nullptr;
    }
    switch (*codec)
    {
        case Codec::h264:
        case Codec::h265:
            return NalDepacketizer::make(*codec, track, std::move(deliver), error);
        case Codec::aac:
            return equalsIgnoringCase(track.encodingName, latmName)
                       ? LatmDepacketizer::make(track, std::move(deliver), error)
                       : AacDepacketizer::make(track, std::move(deliver), error);
        case Codec::mjpeg:
            return JpegDepacketizer::make(track, std::move(deliver), error);
        case Codec::pcmu:
        case Codec::pcma:
        case Codec::opus:
            return AudioDepacketizer::make(*codec, track, std::move(deliver), error);
    }
    return nullptr;
}

std::optional<Codec> Depacketizer::codecOf(std::string_view encodingName)
{
    return equalsIgnoringCase(encodingName, latmName) ? Codec::aac : codecEncodedAs(encodingName);
}

Depacketizer::Depacketizer(Deliver deliver) : deliver_(std::move(deliver)) {}

const char* Depacketizer::push(const RtpPacketView& packet, std::uint32_t lost)
{
    return packet.payloadSize == 0 ? "empty payload" : take(packet, lost);
}

void Depacketizer::setFormat(MediaFormat format)
{
    if (!format_ || !(*format_ == format))
    {
        format_ = std::make_shared<const MediaFormat>(std::move(format));
    }
}

void Depacketizer::deliver(DepacketizedUnit&& unit)
{
    if (format_)
    {
        unit.format = format_;
        deliver_(std::move(unit));
    }
}

}  // namespace refhost
