#pragma once

#include "hostapi/audio/IMediaPlayer.h"

/// An audio output that records its calls; "IMediaPlayer::open" can be scripted.
class FakeMediaPlayer : public IMediaPlayer
{
public:
    FakeMediaPlayer();
    ~FakeMediaPlayer() noexcept(false) override;

    void setDeviceInfo(const DeviceInfoEx& info) override;
    void setEncoderType(int type) override;
    int open() override;
    int play(const std::uint8_t* samples, std::size_t bytes) override;
    void close() override;
};
