#include <gtest/gtest.h>

#include "hostapi/audio/AudioDispatcher.h"
#include "support/StatusCode.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

class SilentPlayer : public IMediaPlayer
{
public:
    explicit SilentPlayer(int& living) : living_(living)
    {
        ++living_;
    }
    ~SilentPlayer() noexcept(false) override
    {
        --living_;
    }
    void setDeviceInfo(const DeviceInfoEx&) override {}
    void setEncoderType(int) override {}
    int open() override
    {
        return 0;
    }
    int play(const std::uint8_t*, std::size_t) override
    {
        return 0;
    }
    void close() override {}

private:
    int& living_;
};

SubMediaInfo backChannel()
{
    SubMediaInfo info;
    info.trackId = "trackID=2";
    info.mediaType = "audio";
    info.encodingName = "PCMU";
    info.clockRate = 8000;
    info.channels = 1;
    info.setAudioBackInfoFlag(true);
    return info;
}

int players = 0;

SafePointer<AudioDispatcher> makeDispatcher()
{
    const SafePointer<IMediaPlayer> player(new SilentPlayer(players));
    return SafePointer<AudioDispatcher>(new AudioDispatcher(player));
}

}  // namespace

TEST(AudioDispatcherContract, CanBeMadeWithoutAPlayer)
{
    const SafePointer<AudioDispatcher> dispatcher(new AudioDispatcher(SafePointer<IMediaPlayer>()));
    EXPECT_FALSE(dispatcher->isPlaying());
}

TEST(AudioDispatcherContract, ReleasesThePlayerWhenDestroyed)
{
    int living = 0;
    {
        const SafePointer<IMediaPlayer> player(new SilentPlayer(living));
        const SafePointer<AudioDispatcher> dispatcher(new AudioDispatcher(player));
        EXPECT_EQ(1, living);
    }
    EXPECT_EQ(0, living);
}

TEST(AudioDispatcherContract, PlaysExactlyFromAPlayThatTookEffectToPauseOrStop)
{
    const SafePointer<AudioDispatcher> dispatcher = makeDispatcher();
    EXPECT_EQ(0, dispatcher->initRTBBuilder(backChannel(), 1364));
    EXPECT_EQ(0, dispatcher->setConnection(HostUnderTest::makeConnection()));
    EXPECT_FALSE(dispatcher->isPlaying());
    EXPECT_EQ(0, dispatcher->play());
    EXPECT_TRUE(dispatcher->isPlaying());
    EXPECT_EQ(0, dispatcher->play());
    EXPECT_TRUE(dispatcher->isPlaying());
    dispatcher->pause();
    EXPECT_FALSE(dispatcher->isPlaying());
    EXPECT_EQ(0, dispatcher->play());
    EXPECT_TRUE(dispatcher->isPlaying());
    dispatcher->stop();
    EXPECT_FALSE(dispatcher->isPlaying());
}

TEST(AudioDispatcherContract, SsrcIsWrittenOnSuccessOnly)
{
    const SafePointer<AudioDispatcher> dispatcher = makeDispatcher();
    dispatcher->initRTBBuilder(backChannel(), 1364);
    int first = 0;
    int second = -1;
    const int result = dispatcher->getTrackSSRC(first);
    EXPECT_EQ(result, dispatcher->getTrackSSRC(second));
    if (result == 0)
    {
        EXPECT_EQ(first, second);
    }
    else
    {
        EXPECT_EQ(0, first);
        EXPECT_EQ(-1, second);
    }
}

TEST(AudioDispatcherContract, SilentClientKeepsItsSession)
{
    const SafePointer<AudioDispatcher> dispatcher = makeDispatcher();
    ASSERT_EQ(0, dispatcher->initRTBBuilder(backChannel(), 1364));
    ASSERT_EQ(0, dispatcher->setConnection(HostUnderTest::makeConnection()));
    ASSERT_EQ(0, dispatcher->play());
    const auto keeps = [](int result)
    {
        return result == statusSuccess || result == statusPlayerUnusable || result == audioDispatcherIdle ||
               result == audioDispatcherAgain;
    };
    for (int i = 0; i < 3; ++i)
    {
        bool fault = false;
        EXPECT_TRUE(keeps(dispatcher->recvAndPlayMediaData(fault)));
        EXPECT_FALSE(fault);
        EXPECT_TRUE(keeps(dispatcher->recvAndSendRTCPData()));
    }
}

TEST(AudioDispatcherContract, FaultFlagIsNeverCleared)
{
    const SafePointer<AudioDispatcher> dispatcher = makeDispatcher();
    bool fault = true;
    dispatcher->recvAndPlayMediaData(fault);
    EXPECT_TRUE(fault);
    fault = false;
    dispatcher->recvAndPlayMediaData(fault);
    EXPECT_FALSE(fault);
}

TEST(AudioDispatcherContract, KeepsItsConnectionUntilItEnds)
{
    {
        const SafePointer<AudioDispatcher> dispatcher = makeDispatcher();
        dispatcher->initRTBBuilder(backChannel(), 1364);
        const int result = dispatcher->setConnection(HostUnderTest::makeConnection());
        EXPECT_EQ(result == 0 ? 1 : 0, HostUnderTest::livingConnections());
    }
    EXPECT_EQ(0, HostUnderTest::livingConnections());
}
