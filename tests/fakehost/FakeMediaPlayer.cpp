#include "tests/fakehost/FakeMediaPlayer.h"

#include <string>

#include "tests/fakehost/FakeHost.h"

FakeMediaPlayer::FakeMediaPlayer()
{
    FakeHost::instance().born("IMediaPlayer");
}

FakeMediaPlayer::~FakeMediaPlayer() noexcept(false)
{
    FakeHost::instance().died("IMediaPlayer");
}

void FakeMediaPlayer::setDeviceInfo(const DeviceInfoEx& info)
{
    FakeHost::instance().called("IMediaPlayer", 0, "setDeviceInfo", info.getDeviceID());
}

void FakeMediaPlayer::setEncoderType(int type)
{
    FakeHost::instance().called("IMediaPlayer", 0, "setEncoderType", std::to_string(type));
}

int FakeMediaPlayer::open()
{
    return FakeHost::instance().outcomeOf("IMediaPlayer", 0, "open", 0).result;
}

int FakeMediaPlayer::play(const std::uint8_t*, std::size_t bytes)
{
    return FakeHost::instance().outcomeOf("IMediaPlayer", 0, "play", std::to_string(bytes), 0).result;
}

void FakeMediaPlayer::close()
{
    FakeHost::instance().called("IMediaPlayer", 0, "close");
}
