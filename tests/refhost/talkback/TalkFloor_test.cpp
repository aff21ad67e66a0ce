#include "refhost/talkback/TalkFloor.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

constexpr std::int64_t ms = 1'000'000;
constexpr std::int64_t silence = 500 * ms;

class TalkFloorTest : public testing::Test
{
protected:
    const int senders_[3] = {};
    const TalkFloor::TalkSender anna = &senders_[0];
    const TalkFloor::TalkSender bert = &senders_[1];
    const TalkFloor::TalkSender carl = &senders_[2];
};

TEST_F(TalkFloorTest, FirstTalkSenderIsHeardUntilHalfASecondOfSilence)
{
    TalkFloor floor(TalkPolicy::first, silence);
    EXPECT_EQ(nullptr, floor.owner());
    EXPECT_TRUE(floor.claim(anna, 0));
    EXPECT_FALSE(floor.claim(bert, 10 * ms));
    EXPECT_TRUE(floor.claim(anna, 20 * ms));
    EXPECT_FALSE(floor.claim(bert, 519 * ms));
    EXPECT_EQ(anna, floor.owner());
    EXPECT_TRUE(floor.claim(bert, 520 * ms));
    EXPECT_FALSE(floor.claim(anna, 530 * ms));
    EXPECT_EQ(bert, floor.owner());
}

TEST_F(TalkFloorTest, WhoPausesOrLeavesIsSilentAtOnce)
{
    TalkFloor floor(TalkPolicy::first, silence);
    floor.claim(anna, 0);
    floor.pause(anna);
    EXPECT_TRUE(floor.claim(bert, 1));
    floor.leave(bert);
    EXPECT_EQ(nullptr, floor.owner());
    EXPECT_TRUE(floor.claim(carl, 2));
}

TEST_F(TalkFloorTest, WhoDoesNotOwnTheOutputMayLeaveUnnoticed)
{
    TalkFloor floor(TalkPolicy::first, silence);
    floor.claim(anna, 0);
    floor.claim(bert, 1);
    floor.leave(bert);
    EXPECT_EQ(anna, floor.owner());
}

TEST_F(TalkFloorTest, NewestWinsOnceAndKeepsTheOutputFromThoseWhoTalkOn)
{
    TalkFloor floor(TalkPolicy::newest, silence);
    EXPECT_TRUE(floor.claim(anna, 0));
    EXPECT_TRUE(floor.claim(bert, 10 * ms));
    EXPECT_FALSE(floor.claim(anna, 20 * ms));
    EXPECT_TRUE(floor.claim(bert, 30 * ms));
    // Bert stops; Anna, who talks on, is heard again when he was silent long enough.
    for (std::int64_t now = 40 * ms; now < 530 * ms; now += 20 * ms)
    {
        EXPECT_FALSE(floor.claim(anna, now));
    }
    EXPECT_TRUE(floor.claim(anna, 530 * ms));
    EXPECT_TRUE(floor.claim(bert, 540 * ms)) << "he starts again";
}

TEST_F(TalkFloorTest, EverybodyIsHeardWhereSendersAreMixed)
{
    TalkFloor floor(TalkPolicy::mix, silence);
    EXPECT_TRUE(floor.claim(anna, 0));
    EXPECT_TRUE(floor.claim(bert, 0));
    EXPECT_TRUE(floor.claim(anna, 1));
    EXPECT_EQ(nullptr, floor.owner());
}

TEST_F(TalkFloorTest, RefusalIsForAsLongAsTheFirstSessionExists)
{
    TalkFloor floor(TalkPolicy::refuse, silence);
    EXPECT_TRUE(floor.admit(anna));
    EXPECT_FALSE(floor.admit(bert));
    EXPECT_TRUE(floor.claim(anna, 0));
    floor.pause(anna);
    EXPECT_FALSE(floor.admit(bert));
    floor.leave(bert);
    EXPECT_FALSE(floor.admit(bert)) << "who was refused has nothing to give back";
    floor.leave(anna);
    EXPECT_TRUE(floor.admit(bert));
}

TEST_F(TalkFloorTest, OtherPoliciesAdmitEverybody)
{
    for (const TalkPolicy policy : {TalkPolicy::first, TalkPolicy::newest, TalkPolicy::mix})
    {
        TalkFloor floor(policy, silence);
        EXPECT_TRUE(floor.admit(anna));
        EXPECT_TRUE(floor.admit(bert));
    }
}

}  // namespace
}  // namespace refhost
