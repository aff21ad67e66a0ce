#include "refhost/talkback/SharedOutput.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/Instants.h"
#include "tests/refhost/talkback/TalkFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using Samples = std::vector<std::int16_t>;

TalkSettings withPolicy(TalkPolicy policy)
{
    TalkSettings settings;
    settings.policy = policy;
    settings.format = {8000, 1};
    return settings;
}

TEST(SharedOutput, AudibleAudioGoesStraightToThePlayer)
{
    SharedOutput output(withPolicy(TalkPolicy::first));
    FakePlayer player;
    const int sender = 0;
    EXPECT_TRUE(output.claim(&sender, "x", atMs(0)));
    EXPECT_EQ(0, output.play(&sender, {1, 2, 3}, player));
    EXPECT_EQ(0, output.pump(player, atMs(0)));
    EXPECT_EQ((Samples{1, 2, 3}), player.played);
}

TEST(SharedOutput, MixedAudioGoesToThePlayerByTheClock)
{
    SharedOutput output(withPolicy(TalkPolicy::mix));
    FakePlayer player;
    const int senders[2] = {};
    for (const int& sender : senders)
    {
        EXPECT_TRUE(output.claim(&sender, "x", atMs(0)));
        EXPECT_EQ(0, output.play(&sender, Samples(560, 100), player));
    }
    EXPECT_EQ(0, output.pump(player, atMs(0)));
    EXPECT_TRUE(player.played.empty());
    EXPECT_EQ(0, output.pump(player, atMs(10)));
    EXPECT_EQ(Samples(80, 200), player.played);
    output.leave(&senders[0]);
    EXPECT_EQ(0, output.pump(player, atMs(20)));
    EXPECT_EQ(100, player.played.back());
}

TEST(SharedOutput, NoMoreTalkSendersAreAdmittedThanTheSettingsSay)
{
    TalkSettings settings = withPolicy(TalkPolicy::first);
    settings.maxTalkSenders = 2;
    SharedOutput output(settings);
    const int senders[3] = {};
    EXPECT_TRUE(output.admit(&senders[0]));
    EXPECT_TRUE(output.admit(&senders[1]));
    EXPECT_TRUE(output.admit(&senders[1])) << "it is in";
    EXPECT_FALSE(output.admit(&senders[2]));
    output.pause(&senders[0]);
    EXPECT_FALSE(output.admit(&senders[2]));
    output.leave(&senders[0]);
    EXPECT_TRUE(output.admit(&senders[2]));
}

TEST(SharedOutput, FailureOfThePlayerIsPassedOn)
{
    SharedOutput output(withPolicy(TalkPolicy::first));
    FakePlayer player;
    player.result = -77;
    const int sender = 0;
    EXPECT_EQ(0, output.play(&sender, {}, player));
    EXPECT_EQ(-77, output.play(&sender, {1}, player));
}

TEST(SharedOutput, NewOwnersAreLoggedOnce)
{
    SharedOutput output(withPolicy(TalkPolicy::first));
    const int senders[2] = {};
    testing::internal::CaptureStderr();
    output.claim(&senders[0], "192.0.2.1:5004", atMs(0));
    output.claim(&senders[1], "192.0.2.2:5004", atMs(1));
    output.claim(&senders[0], "192.0.2.1:5004", atMs(2));
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, text.find("192.0.2.1:5004 has the audio output")) << text;
    EXPECT_EQ(text.find("has the audio output"), text.rfind("has the audio output")) << text;
}

}  // namespace
}  // namespace test
}  // namespace refhost
