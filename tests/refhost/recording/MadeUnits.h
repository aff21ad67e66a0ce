#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/media/Codec.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// Encoded units of a camera, with realistic sizes and contents that are never decoded.
/// Times are seconds after `epoch`.
class MadeUnits
{
public:
    static constexpr Duration second = std::chrono::seconds(1);
    /// 2026-01-01 and some nanoseconds.
    static constexpr WallTime epoch = wallTimeOfUnix(1767225600) + Duration(123456789);

    static WallTime at(double time)
    {
        return epoch + durationOf(std::chrono::duration<double>(time));
    }

    /// The capture time of that date.
    static MonotonicTime capturedAt(double time)
    {
        return MonotonicTime(at(time).time_since_epoch());
    }

    static std::shared_ptr<const MediaFormat> videoFormat(int width = 320)
    {
        MediaFormat format;
        format.codec = Codec::h264;
        format.codecData = avcRecord();
        format.width = width;
        format.height = 180;
        return std::make_shared<const MediaFormat>(format);
    }

    static std::shared_ptr<const MediaFormat> audioFormat(Codec codec = Codec::pcmu)
    {
        MediaFormat format;
        format.codec = codec;
        format.sampleRate = infoOf(codec).talkBackRate;
        format.channels = 1;
        if (codec == Codec::aac)
        {
            format.codecData = {0x14, 0x08};
        }
        if (infoOf(codec).makeCodecData != nullptr)
        {
            format.codecData = infoOf(codec).makeCodecData(format.channels);
        }
        return std::make_shared<const MediaFormat>(format);
    }

    EncodedUnitPtr frame(double time, bool key, std::size_t bytes = 1000) const
    {
        return unit(video, time, 0.04, key, bytes);
    }

    EncodedUnitPtr block(double time) const
    {
        return unit(audio, time, 0.02, true, 160);
    }

    std::shared_ptr<const MediaFormat> video = videoFormat();
    std::shared_ptr<const MediaFormat> audio = audioFormat();

private:
    // The record of a real 320x180 stream, baseline profile.
    static std::vector<std::uint8_t> avcRecord()
    {
        return {0x01, 0x42, 0xc0, 0x0d, 0xff, 0xe1, 0x00, 0x17, 0x67, 0x42, 0xc0, 0x0d, 0xd9, 0x01,
                0x41, 0x9f, 0x9e, 0x10, 0x00, 0x00, 0x03, 0x00, 0x10, 0x00, 0x00, 0x03, 0x03, 0x28,
                0xf1, 0x42, 0xa4, 0x80, 0x01, 0x00, 0x05, 0x68, 0xcb, 0x83, 0xcb, 0x20};
    }

    static EncodedUnitPtr unit(const std::shared_ptr<const MediaFormat>& format, double time, double length,
                               bool key, std::size_t bytes)
    {
        auto made = std::make_shared<EncodedUnit>();
        made->format = format;
        made->bytes.assign(bytes, 0x55);
        if (format->codec == Codec::h264 && bytes > 5)
        {
            const std::size_t rest = bytes - 4;
            made->bytes[0] = static_cast<std::uint8_t>(rest >> 24);
            made->bytes[1] = static_cast<std::uint8_t>(rest >> 16);
            made->bytes[2] = static_cast<std::uint8_t>(rest >> 8);
            made->bytes[3] = static_cast<std::uint8_t>(rest);
            made->bytes[4] = key ? 0x65 : 0x41;
        }
        made->captureTime = capturedAt(time);
        made->decodeTime = made->captureTime;
        made->duration = durationOf(std::chrono::duration<double>(length));
        made->keyFrame = key;
        return made;
    }
};

}  // namespace refhost
