#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "hostapi/audio/IMediaPlayer.h"
#include "refhost/media/BackChannel.h"
#include "refhost/talkback/TalkDecoder.h"

namespace refhost
{
namespace test
{

using Bytes = std::vector<std::uint8_t>;

/// Builds an RTP packet.
struct RtpPacket
{
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    Bytes payload = Bytes(160, 0x55);
    std::uint8_t payloadType = 0;
    std::uint32_t ssrc = 0x01020304;
    bool marker = false;

    Bytes bytes() const
    {
        Bytes out = {0x80, static_cast<std::uint8_t>((marker ? 0x80U : 0U) | payloadType)};
        put(out, sequence, 2);
        put(out, timestamp, 4);
        put(out, ssrc, 4);
        out.insert(out.end(), payload.begin(), payload.end());
        return out;
    }

private:
    static void put(Bytes& out, std::uint32_t number, unsigned bytes)
    {
        while (bytes-- > 0)
        {
            out.push_back(static_cast<std::uint8_t>(number >> 8U * bytes));
        }
    }
};

/// One call of a FakeDecoder.
struct Decoded
{
    enum class Kind
    {
        frame,
        concealed,
        reset
    };

    Kind kind;
    std::uint32_t value;  ///< the frame's first byte, or the concealed ticks

    bool operator==(const Decoded& other) const
    {
        return kind == other.kind && value == other.value;
    }
};

inline Decoded frame(std::uint32_t firstByte)
{
    return {Decoded::Kind::frame, firstByte};
}

inline Decoded concealed(std::uint32_t ticks)
{
    return {Decoded::Kind::concealed, ticks};
}

inline Decoded reset()
{
    return {Decoded::Kind::reset, 0};
}

/// Makes one sample of a frame, its first byte, and one of what is concealed, -1.
class FakeDecoder : public TalkDecoder
{
public:
    explicit FakeDecoder(std::shared_ptr<std::vector<Decoded>> calls) : calls_(std::move(calls)) {}

    bool decode(const std::uint8_t* data, std::size_t, std::vector<std::int16_t>& samples) override
    {
        if (data[0] == 0xff)
        {
            return false;
        }
        calls_->push_back(frame(data[0]));
        samples.push_back(data[0]);
        return true;
    }

    void conceal(std::uint32_t ticks, std::vector<std::int16_t>& samples) override
    {
        calls_->push_back(concealed(ticks));
        samples.push_back(-1);
    }

    void reset() override
    {
        calls_->push_back(test::reset());
    }

private:
    const std::shared_ptr<std::vector<Decoded>> calls_;
};

/// Keeps what it is given.
class FakePlayer : public IMediaPlayer
{
public:
    void setDeviceInfo(const DeviceInfoEx&) override {}
    void setEncoderType(int) override {}

    int open() override
    {
        return 0;
    }

    int play(const std::uint8_t* samples, std::size_t bytes) override
    {
        if (result == 0)
        {
            const std::size_t before = played.size();
            const std::size_t added = bytes / sizeof(std::int16_t);
            played.resize(before + added);
            std::memcpy(played.data() + before, samples, added * sizeof(std::int16_t));
        }
        return result;
    }

    void close() override {}

    std::vector<std::int16_t> played;
    int result = 0;
};

}  // namespace test
}  // namespace refhost
