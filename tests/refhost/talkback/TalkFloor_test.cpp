#include "refhost/talkback/TalkFloor.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/Instants.h"

namespace refhost
{
namespace
{

using test::atMs;

constexpr std::chrono::milliseconds silence(500);

class TalkFloorTest : public testing::Test
{
protected:
    const int senders_[3] = {};
    const TalkFloor::TalkSender anna = &senders_[0];
    const TalkFloor::TalkSender bert = &senders_[1];
    const TalkFloor::TalkSender carl = &senders_[2];
};

TEST_F(TalkFloorTest, FirstTalkSenderIsAudibleUntilHalfASecondOfSilence)
{
    TalkFloor floor(TalkPolicy::first, silence);
    EXPECT_EQ(nullptr, floor.owner());
    EXPECT_TRUE(floor.claim(anna, atMs(0)));
    EXPECT_FALSE(floor.claim(bert, atMs(10)));
    EXPECT_TRUE(floor.claim(anna, atMs(20)));
    EXPECT_FALSE(floor.claim(bert, atMs(519)));
    EXPECT_EQ(anna, floor.owner());
    EXPECT_TRUE(floor.claim(bert, atMs(520)));
    EXPECT_FALSE(floor.claim(anna, atMs(530)));
    EXPECT_EQ(bert, floor.owner());
}

TEST_F(TalkFloorTest, PausingOrLeavingSenderIsSilentAtOnce)
{
    TalkFloor floor(TalkPolicy::first, silence);
    floor.claim(anna, atMs(0));
    floor.pause(anna);
    EXPECT_TRUE(floor.claim(bert, atMs(1)));
    floor.leave(bert);
    EXPECT_EQ(nullptr, floor.owner());
    EXPECT_TRUE(floor.claim(carl, atMs(2)));
}

TEST_F(TalkFloorTest, LeavingSenderWithoutTheOutputChangesNothing)
{
    TalkFloor floor(TalkPolicy::first, silence);
    floor.claim(anna, atMs(0));
    floor.claim(bert, atMs(1));
    floor.leave(bert);
    EXPECT_EQ(anna, floor.owner());
}

TEST_F(TalkFloorTest, NewestWinsOnceAndKeepsTheOutputFromThoseWhoTalkOn)
{
    TalkFloor floor(TalkPolicy::newest, silence);
    EXPECT_TRUE(floor.claim(anna, atMs(0)));
    EXPECT_TRUE(floor.claim(bert, atMs(10)));
    EXPECT_FALSE(floor.claim(anna, atMs(20)));
    EXPECT_TRUE(floor.claim(bert, atMs(30)));
    // Bert stops; Anna talks on and is audible again after his silence.
    for (int now = 40; now < 530; now += 20)
    {
        EXPECT_FALSE(floor.claim(anna, atMs(now)));
    }
    EXPECT_TRUE(floor.claim(anna, atMs(530)));
    EXPECT_TRUE(floor.claim(bert, atMs(540))) << "he starts again";
}

TEST_F(TalkFloorTest, EverySenderIsAudibleWhereSendersAreMixed)
{
    TalkFloor floor(TalkPolicy::mix, silence);
    EXPECT_TRUE(floor.claim(anna, atMs(0)));
    EXPECT_TRUE(floor.claim(bert, atMs(0)));
    EXPECT_TRUE(floor.claim(anna, atMs(1)));
    EXPECT_EQ(nullptr, floor.owner());
}

TEST_F(TalkFloorTest, RefusalIsForAsLongAsTheFirstSessionExists)
{
    TalkFloor floor(TalkPolicy::refuse, silence);
    EXPECT_TRUE(floor.admit(anna));
    EXPECT_FALSE(floor.admit(bert));
    EXPECT_TRUE(floor.claim(anna, atMs(0)));
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
