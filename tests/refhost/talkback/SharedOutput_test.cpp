#include "refhost/talkback/SharedOutput.h"

#include <gtest/gtest.h>

#include "tests/refhost/talkback/TalkFakes.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr std::int64_t ms = 1'000'000;
using Samples = std::vector<std::int16_t>;

TalkSettings withPolicy(TalkPolicy policy)
{
    TalkSettings settings;
    settings.policy = policy;
    settings.format = {8000, 1};
    return settings;
}

TEST(SharedOutput, AudioOfWhoIsHeardGoesStraightToThePlayer)
{
    SharedOutput output(withPolicy(TalkPolicy::first));
    FakePlayer player;
    const int talker = 0;
    EXPECT_TRUE(output.claim(&talker, "x", 0));
    EXPECT_EQ(0, output.play(&talker, {1, 2, 3}, player));
    EXPECT_EQ(0, output.pump(player, 0));
    EXPECT_EQ((Samples{1, 2, 3}), player.played);
}

TEST(SharedOutput, MixedAudioGoesToThePlayerByTheClock)
{
    SharedOutput output(withPolicy(TalkPolicy::mix));
    FakePlayer player;
    const int talkers[2] = {};
    for (const int& talker : talkers)
    {
        EXPECT_TRUE(output.claim(&talker, "x", 0));
        EXPECT_EQ(0, output.play(&talker, Samples(560, 100), player));
    }
    EXPECT_EQ(0, output.pump(player, 0));
    EXPECT_TRUE(player.played.empty());
    EXPECT_EQ(0, output.pump(player, 10 * ms));
    EXPECT_EQ(Samples(80, 200), player.played);
    output.leave(&talkers[0]);
    EXPECT_EQ(0, output.pump(player, 20 * ms));
    EXPECT_EQ(100, player.played.back());
}

TEST(SharedOutput, NoMoreTalkersAreAdmittedThanTheSettingsSay)
{
    TalkSettings settings = withPolicy(TalkPolicy::first);
    settings.maxTalkers = 2;
    SharedOutput output(settings);
    const int talkers[3] = {};
    EXPECT_TRUE(output.admit(&talkers[0]));
    EXPECT_TRUE(output.admit(&talkers[1]));
    EXPECT_TRUE(output.admit(&talkers[1])) << "it is in";
    EXPECT_FALSE(output.admit(&talkers[2]));
    output.pause(&talkers[0]);
    EXPECT_FALSE(output.admit(&talkers[2]));
    output.leave(&talkers[0]);
    EXPECT_TRUE(output.admit(&talkers[2]));
}

TEST(SharedOutput, FailureOfThePlayerIsPassedOn)
{
    SharedOutput output(withPolicy(TalkPolicy::first));
    FakePlayer player;
    player.result = -77;
    const int talker = 0;
    EXPECT_EQ(0, output.play(&talker, {}, player));
    EXPECT_EQ(-77, output.play(&talker, {1}, player));
}

TEST(SharedOutput, NewOwnersStandInTheLogOnce)
{
    SharedOutput output(withPolicy(TalkPolicy::first));
    const int talkers[2] = {};
    testing::internal::CaptureStderr();
    output.claim(&talkers[0], "192.0.2.1:5004", 0);
    output.claim(&talkers[1], "192.0.2.2:5004", 1);
    output.claim(&talkers[0], "192.0.2.1:5004", 2);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, text.find("192.0.2.1:5004 has the audio output")) << text;
    EXPECT_EQ(text.find("has the audio output"), text.rfind("has the audio output")) << text;
}

}  // namespace
}  // namespace test
}  // namespace refhost
