#include "refhost/rtp/payload/AudioDepacketizer.h"

#include <utility>

#include "refhost/rtp/payload/PacketRun.h"

namespace refhost
{
namespace
{

/// An Opus description names two channels whatever there is; the sender says in `sprop-stereo` what it has
/// (RFC 7587, section 6.1).
int channelsOf(Codec codec, const PayloadDescription& track)
{
    if (codec != Codec::opus)
    {
        return track.channels;
    }
    const auto stereo = track.parameters.find("sprop-stereo");
    return stereo != track.parameters.end() && stereo->second == "1" ? 2 : 1;
}

}  // namespace

std::unique_ptr<Depacketizer> AudioDepacketizer::make(Codec codec, const PayloadDescription& track,
                                                      Deliver deliver, std::string& error)
{
    const CodecInfo& info = infoOf(codec);
    const int channels = channelsOf(codec, track);
    if (track.clockRate != info.clockRate || (codec != Codec::opus && channels != 1))
    {
        error = std::string(info.encodingName) + " of " + std::to_string(track.clockRate) + " Hz and " +
                std::to_string(track.channels) + " channels cannot be read, only " +
                std::to_string(info.clockRate) + " Hz";
        error += codec == Codec::opus ? "" : " and one channel";
        return nullptr;
    }
    return std::unique_ptr<Depacketizer>(new AudioDepacketizer(codec, channels, std::move(deliver)));
}

AudioDepacketizer::AudioDepacketizer(Codec codec, int channels, Deliver deliver)
    : Depacketizer(std::move(deliver)), info_(infoOf(codec)), channels_(channels)
{
    describe();
}

void AudioDepacketizer::describe()
{
    MediaFormat format;
    format.codec = info_.codec;
    format.sampleRate = info_.clockRate;
    format.channels = channels_;
    if (info_.makeCodecData != nullptr)
    {
        format.codecData = info_.makeCodecData(channels_);
    }
    setFormat(std::move(format));
}

const char* AudioDepacketizer::take(const RtpPacketView& packet, std::uint32_t)
{
    const ByteSpan payload(packet.payload, packet.payloadSize);
    DepacketizedUnit unit;
    unit.duration = info_.samplesIn(payload.data, payload.size, channels_);
    if (unit.duration == 0)
    {
        return "not a whole number of samples";
    }
    // The table-of-contents byte contains what the description may have left out (RFC 6716, section 3.1).
    constexpr std::uint8_t stereoBit = 0x04;
    if (info_.codec == Codec::opus && channels_ == 1 && (payload[0] & stereoBit) != 0)
    {
        channels_ = 2;
        describe();
    }
    unit.timestamp = packet.timestamp;
    unit.keyFrame = true;
    if (outputs().media)
    {
        unit.bytes.assign(payload.begin(), payload.end());
    }
    if (outputs().packets)
    {
        PacketRun run;
        run.expect(AccessUnit::framingSize + AccessUnit::rtpHeaderSize + payload.size, 1);
        run.add(payload, {});
        unit.maxPayload = run.maxPayload();
        unit.packets = run.finish(packet.timestamp, packet.marker);
        unit.packets->keyFrame = true;
    }
    deliver(std::move(unit));
    return nullptr;
}

}  // namespace refhost
