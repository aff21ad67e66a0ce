#include "tests/audioback/ManagerFixture.h"

#include "tests/fakehost/FakeMediaPlayer.h"

ManagerFixture::ManagerFixture()
{
    host_.reset();
}

ManagerFixture::~ManagerFixture() noexcept = default;

void ManagerFixture::TearDown()
{
    host_.reset();
    CapturedOutput output;
    manager_->stop();
    host_.reset();
}

int ManagerFixture::add(const std::string& sessionId)
{
    CapturedOutput output;
    return manager_->initSession(sessionId, track_.trackId, track_, 1364);
}

void ManagerFixture::addPlaying(const std::string& sessionId)
{
    ASSERT_EQ(0, add(sessionId));
    ASSERT_EQ(0, manager_->startAudio(sessionId));
    host_.clearCalls();
}

void ManagerFixture::openPlayer()
{
    ASSERT_EQ(0, manager_->processPlayer());
    host_.clearCalls();
}

bool ManagerFixture::playerOpened()
{
    // A new encoder type closes and reopens an open output; a closed one only gets the type.
    host_.clearCalls();
    host_.script("IMediaPlayer::open", {0});
    manager_->setEncoderType(103);
    const bool opened = host_.callCount("IMediaPlayer::close") != 0;
    host_.clearCalls();
    return opened;
}

SafePointer<IConnection> ManagerFixture::connection(int kind)
{
    return SafePointer<IConnection>(new FakeConnection(kind));
}

ManagerWithPlayer::~ManagerWithPlayer() noexcept = default;

void ManagerWithPlayer::SetUp()
{
    manager_->setMediaPlayer(SafePointer<IMediaPlayer>(new FakeMediaPlayer));
    DeviceInfoEx device;
    device.setDeviceID("device");
    manager_->setDeviceInfoEx(device);
}
