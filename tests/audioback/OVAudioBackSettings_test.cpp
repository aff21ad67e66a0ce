#include <gtest/gtest.h>

#include <string>

#include "tests/audioback/ManagerFixture.h"
#include "tests/fakehost/FakeMediaPlayer.h"

namespace
{

class OVAudioBackSettings : public ManagerWithPlayer
{
protected:
    ~OVAudioBackSettings() noexcept override {}
};

}  // namespace

TEST_F(OVAudioBackSettings, MtuIs1440AtFirstAndIsKeptByReference)
{
    EXPECT_EQ(1440, manager_->getMTUParam().getMTUValue());
    MTUParam mtu;
    mtu.setMTUValue(1500);
    manager_->setMTUParam(mtu);
    EXPECT_EQ(1500, manager_->getMTUParam().getMTUValue());
    manager_->getMTUParam().setMTUValue(1440);
    EXPECT_EQ(1440, manager_->getMTUParam().getMTUValue());
}

TEST_F(OVAudioBackSettings, EncoderTypeIsOnlyPassedToAClosedOutput)
{
    EXPECT_EQ(0, manager_->setEncoderType(8));
    EXPECT_EQ((Calls{"IMediaPlayer::setEncoderType(8)"}), host_.calls());
}

TEST_F(OVAudioBackSettings, EncoderTypeReopensAnOpenOutput)
{
    addPlaying("s1");
    openPlayer();
    EXPECT_EQ(0, manager_->setEncoderType(8));
    EXPECT_EQ((Calls{
                  "IMediaPlayer::close()",
                  "IMediaPlayer::setDeviceInfo(device)",
                  "IMediaPlayer::setEncoderType(8)",
                  "IMediaPlayer::open()",
              }),
              host_.calls());
    EXPECT_TRUE(playerOpened());
}

TEST_F(OVAudioBackSettings, OutputThatDoesNotReopenIsClosedAndItsCodeGoesToTheCaller)
{
    addPlaying("s1");
    openPlayer();
    host_.script("IMediaPlayer::open", {-33});
    EXPECT_EQ(-33, manager_->setEncoderType(8));
    EXPECT_FALSE(playerOpened());
}

TEST_F(OVAudioBackSettings, DefaultEncoderTypeNeverReachesTheOutput)
{
    addPlaying("s1");
    CapturedOutput output;
    manager_->run();
    manager_->stop();
    EXPECT_EQ(0u, host_.callCount("IMediaPlayer::setEncoderType"));
}

TEST_F(OVAudioBackSettings, DeviceIsPassedToTheOutputAtTheNextOpening)
{
    addPlaying("s1");
    openPlayer();
    DeviceInfoEx device;
    device.setDeviceID("another");
    manager_->setDeviceInfoEx(device);
    EXPECT_TRUE(host_.calls().empty());
    manager_->pauseAudio("s1");
    manager_->processPlayer();
    manager_->startAudio("s1");
    host_.clearCalls();
    manager_->processPlayer();
    EXPECT_EQ("IMediaPlayer::setDeviceInfo(another)", host_.calls()[2]);
}

TEST_F(OVAudioBackSettings, NewOutputReplacesTheOldOneAndCountsAsOpenWhenThatWas)
{
    addPlaying("s1");
    openPlayer();
    manager_->setMediaPlayer(SafePointer<IMediaPlayer>(new FakeMediaPlayer));
    EXPECT_TRUE(host_.calls().empty()) << "neither output is called";
    EXPECT_EQ(0, manager_->processPlayer());
    EXPECT_EQ(0u, host_.callCount("IMediaPlayer::open"));
    EXPECT_TRUE(playerOpened());
}

TEST_F(OVAudioBackSettings, OutputIsReleasedWhenItIsReplacedAndNoDispatcherHoldsIt)
{
    EXPECT_EQ(1, host_.living("IMediaPlayer"));
    manager_->setMediaPlayer(SafePointer<IMediaPlayer>(new FakeMediaPlayer));
    EXPECT_EQ(1, host_.living("IMediaPlayer"));
}

TEST_F(OVAudioBackSettings, AnEmptyOutputIsRefusedAndTheOldOneStays)
{
    const SafePointer<IMediaPlayer> empty;
    CapturedOutput output;
    EXPECT_THROW(manager_->setMediaPlayer(empty), OVRuntimeError);
    EXPECT_EQ("SafePointer Report:12IMediaPlayer Assigned NULL <T>pointer\n", output.text());
    manager_->setEncoderType(8);
    EXPECT_EQ(1u, host_.callCount("IMediaPlayer::setEncoderType"));
}
