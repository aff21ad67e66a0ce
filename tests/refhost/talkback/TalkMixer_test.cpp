#include "refhost/talkback/TalkMixer.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tests/refhost/base/Instants.h"

namespace refhost
{
namespace
{

using Samples = std::vector<std::int16_t>;

constexpr PcmFormat format{8000, 1};  // 8 samples a millisecond

class TalkMixerTest : public testing::Test
{
protected:
    Samples takeAt(std::int64_t ms)
    {
        Samples sum;
        mixer.take(test::atMs(ms), sum);
        return sum;
    }

    const int senders_[2] = {};
    const TalkMixer::TalkSender anna = &senders_[0];
    const TalkMixer::TalkSender bert = &senders_[1];
    TalkMixer mixer{format};
};

TEST_F(TalkMixerTest, NoSenderMeansNoAudio)
{
    EXPECT_TRUE(takeAt(0).empty());
    EXPECT_TRUE(takeAt(1000).empty());
}

TEST_F(TalkMixerTest, OneTalkSenderLeavesByTheClockAndUnchanged)
{
    Samples counted(480 + 80);
    std::iota(counted.begin(), counted.end(), std::int16_t{1});
    mixer.add(anna, counted);
    EXPECT_TRUE(takeAt(0).empty());
    Samples got = takeAt(10);
    EXPECT_EQ(80U, got.size());
    const Samples more = takeAt(25);
    EXPECT_EQ(120U, more.size());
    got.insert(got.end(), more.begin(), more.end());
    EXPECT_EQ(Samples(counted.begin(), counted.begin() + 200), got);
}

TEST_F(TalkMixerTest, TalkSendersAreAddedUpAndDoNotWrap)
{
    mixer.add(anna, Samples(560, 20000));
    mixer.add(bert, Samples(560, 20000));
    takeAt(0);
    EXPECT_EQ(Samples(80, 32767), takeAt(10));
    mixer.remove(bert);
    EXPECT_EQ(Samples(80, 20000), takeAt(20));
}

TEST_F(TalkMixerTest, ATalkSenderComesInWithSomethingAhead)
{
    mixer.add(anna, Samples(560, 1));
    takeAt(0);
    mixer.add(bert, Samples(479, 2));
    EXPECT_EQ(Samples(80, 1), takeAt(10));
    mixer.add(bert, Samples(1, 2));
    EXPECT_EQ(Samples(80, 3), takeAt(20));
}

TEST_F(TalkMixerTest, ATalkSenderThatRunsDryIsSilentUntilItIsAheadAgain)
{
    mixer.add(anna, Samples(1600, 1));
    mixer.add(bert, Samples(480, 2));
    takeAt(0);
    EXPECT_EQ(Samples(480, 3), takeAt(60));
    EXPECT_EQ(Samples(80, 1), takeAt(70));
    mixer.add(bert, Samples(100, 2));
    EXPECT_EQ(Samples(80, 1), takeAt(80));
    mixer.add(bert, Samples(380, 2));
    EXPECT_EQ(Samples(80, 3), takeAt(90));
}

TEST_F(TalkMixerTest, AudioTooFarAheadLosesItsOldest)
{
    mixer.add(anna, Samples(1600, 1));
    mixer.add(anna, Samples(1520, 2));
    takeAt(0);
    Samples sum = takeAt(20);
    EXPECT_EQ(Samples(80, 1), Samples(sum.begin(), sum.begin() + 80));
    EXPECT_EQ(Samples(80, 2), Samples(sum.begin() + 80, sum.end()));
}

TEST_F(TalkMixerTest, ABurstDelaysATalkSenderUntilItsNextPacketOnly)
{
    mixer.add(anna, Samples(1600, 1));
    takeAt(0);
    EXPECT_EQ(Samples(160, 1), takeAt(20));
    mixer.add(anna, Samples(160, 2));
    EXPECT_EQ(Samples(480, 1), takeAt(80));
    EXPECT_EQ(Samples(160, 2), takeAt(100)) << "60 ms after it came";
}

TEST_F(TalkMixerTest, LongBreakIsNotCaughtUp)
{
    mixer.add(anna, Samples(1600, 1));
    takeAt(0);
    EXPECT_TRUE(takeAt(101).empty());
    EXPECT_EQ(80U, takeAt(111).size());
}

}  // namespace
}  // namespace refhost
