#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "hostapi/live/LiveDispatcherMgr.h"
#include "hostapi/live/MulticastSessionToken.h"

namespace
{

using Record = SafePointer<MulticastSessionParameter>;

const std::string group = "group";
const std::string otherGroup = "other group";

TrackParam track(const std::string& id, const std::string& url)
{
    TrackParam param;
    param.setTrackID(id);
    param.setMeidaUrl(url);
    return param;
}

MulticastMemberSessionParameter member(const std::string& id)
{
    MulticastMemberSessionParameter param;
    param.setMemberSessionId(id);
    return param;
}

Record newRecord(const std::string& id)
{
    const Record record(new MulticastSessionParameter);
    record->setMulticastSessionId(id);
    return record;
}

class MulticastRecords : public testing::Test
{
protected:
    ~MulticastRecords() noexcept override {}

    void TearDown() override
    {
        dispatcher_->deleteMulticastSessionParam(group);
        dispatcher_->deleteMulticastSessionParam(otherGroup);
    }

    const SafePointer<LiveDispatcherMgr> dispatcher_ = LiveDispatcherMgr::getInstance();
};

}  // namespace

TEST_F(MulticastRecords, AreFoundFromTheirAdditionUntilTheirDeletion)
{
    EXPECT_FALSE(dispatcher_->findMulticastSessionId(group));
    EXPECT_EQ(0, dispatcher_->addMulticastSessionParam(newRecord(group)));
    EXPECT_TRUE(dispatcher_->findMulticastSessionId(group));
    EXPECT_FALSE(dispatcher_->findMulticastSessionId(otherGroup));
    dispatcher_->deleteMulticastSessionParam(group);
    EXPECT_FALSE(dispatcher_->findMulticastSessionId(group));
}

TEST_F(MulticastRecords, UnknownIdLeavesTheHandleUnchanged)
{
    Record param;
    EXPECT_NE(0, dispatcher_->getMulticastSessionParam(group, param));
    EXPECT_TRUE(param.isEmpty());
    param = newRecord("mine");
    EXPECT_NE(0, dispatcher_->getMulticastSessionParam(group, param));
    EXPECT_EQ("mine", param->getMulticastSessionId());
}

TEST_F(MulticastRecords, AreHandedOutThemselvesNotAsCopies)
{
    const Record added = newRecord(group);
    ASSERT_EQ(0, dispatcher_->addMulticastSessionParam(added));
    Record first;
    Record second;
    ASSERT_EQ(0, dispatcher_->getMulticastSessionParam(group, first));
    ASSERT_EQ(0, dispatcher_->getMulticastSessionParam(group, second));
    EXPECT_EQ(added.operator->(), first.operator->());
    first->addMemberSessionParam(member("one"));
    EXPECT_TRUE(second->findMemberSession("one"));
}

TEST_F(MulticastRecords, StoredBackAreTheSameAsBefore)
{
    ASSERT_EQ(0, dispatcher_->addMulticastSessionParam(newRecord(group)));
    Record param;
    ASSERT_EQ(0, dispatcher_->getMulticastSessionParam(group, param));
    param->addMemberSessionParam(member("one"));
    EXPECT_EQ(0, dispatcher_->addMulticastSessionParam(param));
    Record again;
    ASSERT_EQ(0, dispatcher_->getMulticastSessionParam(group, again));
    EXPECT_EQ(param.operator->(), again.operator->());
    EXPECT_EQ((std::vector<std::string>{"one"}), again->getMemberSessionIdList());
}

TEST_F(MulticastRecords, RecordOfTheSameIdReplacesIt)
{
    ASSERT_EQ(0, dispatcher_->addMulticastSessionParam(newRecord(group)));
    const Record second = newRecord(group);
    ASSERT_EQ(0, dispatcher_->addMulticastSessionParam(second));
    Record param;
    ASSERT_EQ(0, dispatcher_->getMulticastSessionParam(group, param));
    EXPECT_EQ(second.operator->(), param.operator->());
}

TEST_F(MulticastRecords, StayGoodInOtherHandsAfterTheirDeletion)
{
    ASSERT_EQ(0, dispatcher_->addMulticastSessionParam(newRecord(group)));
    Record param;
    ASSERT_EQ(0, dispatcher_->getMulticastSessionParam(group, param));
    dispatcher_->deleteMulticastSessionParam(group);
    EXPECT_EQ(group, param->getMulticastSessionId());
}

TEST_F(MulticastRecords, AreApart)
{
    ASSERT_EQ(0, dispatcher_->addMulticastSessionParam(newRecord(group)));
    ASSERT_EQ(0, dispatcher_->addMulticastSessionParam(newRecord(otherGroup)));
    dispatcher_->deleteMulticastSessionParam(group);
    dispatcher_->deleteMulticastSessionParam("unknown");
    EXPECT_TRUE(dispatcher_->findMulticastSessionId(otherGroup));
}

TEST_F(MulticastRecords, DoNotAffectSessions)
{
    ASSERT_EQ(0, dispatcher_->addMulticastSessionParam(newRecord(group)));
    EXPECT_FALSE(dispatcher_->findSession(group));
}

TEST(MulticastSessionParameter, StartsEmpty)
{
    const MulticastSessionParameter param;
    EXPECT_EQ("", param.getMulticastSessionId());
    EXPECT_TRUE(param.getMemberSessionIdList().empty());
    EXPECT_TRUE(param.getTrackParamList().empty());
    EXPECT_FALSE(param.findMemberSession(""));
    EXPECT_FALSE(param.findMulticastSessionTrackParam(""));
}

TEST(MulticastSessionParameter, KeepsMembersInTheirOrderAndEachOnce)
{
    MulticastSessionParameter param;
    for (const char* id : {"b", "a", "c", "a"})
    {
        param.addMemberSessionParam(member(id));
    }
    EXPECT_EQ((std::vector<std::string>{"b", "a", "c"}), param.getMemberSessionIdList());
    param.deleteMemberSessionParam("a");
    param.deleteMemberSessionParam("unknown");
    EXPECT_EQ((std::vector<std::string>{"b", "c"}), param.getMemberSessionIdList());
    EXPECT_FALSE(param.findMemberSession("a"));
    EXPECT_TRUE(param.findMemberSession("c"));
    param.deleteMemberSessionParam("b");
    param.deleteMemberSessionParam("c");
    EXPECT_TRUE(param.getMemberSessionIdList().empty());
}

TEST(MulticastSessionParameter, KeepsTracksInTheirOrderAndTheFirstUrlOfEach)
{
    MulticastSessionParameter param;
    param.addTrackParam(track("video", "first"));
    param.addTrackParam(track("audio", "second"));
    param.addTrackParam(track("video", "third"));
    const std::vector<TrackParam> tracks = param.getTrackParamList();
    ASSERT_EQ(2u, tracks.size());
    EXPECT_EQ("video", tracks[0].getTrackID());
    EXPECT_EQ("first", tracks[0].getMeidaUrl());
    EXPECT_EQ("audio", tracks[1].getTrackID());
    EXPECT_TRUE(param.findMulticastSessionTrackParam("video"));
    EXPECT_FALSE(param.findMulticastSessionTrackParam("vide"));
}

TEST(MulticastSessionParameter, TakesMembersFromManyThreads)
{
    MulticastSessionParameter param;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&param, i]
            {
                for (int iteration = 0; iteration < 50; ++iteration)
                {
                    const std::string id = std::to_string(i) + "-" + std::to_string(iteration);
                    param.addMemberSessionParam(member(id));
                    EXPECT_TRUE(param.findMemberSession(id));
                    if (iteration % 2 == 0)
                    {
                        param.deleteMemberSessionParam(id);
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(100u, param.getMemberSessionIdList().size());
}

TEST(MulticastSessionToken, GivesEachStreamAnIdOfItsOwnAndAlwaysTheSame)
{
    const int lowest = std::numeric_limits<int>::min();
    const int highest = std::numeric_limits<int>::max();
    std::set<std::string> ids;
    std::size_t streams = 0;
    for (int camera : {lowest, -1, 0, 1, 11, 111, highest})
    {
        for (int stream : {lowest, -1, 0, 1, 11, 111, highest})
        {
            std::string id;
            std::string again = "before";
            EXPECT_EQ(0, MulticastSessionToken().generateMulticastSessionId(camera, stream, id));
            EXPECT_EQ(0, MulticastSessionToken().generateMulticastSessionId(camera, stream, again));
            EXPECT_EQ(id, again);
            EXPECT_FALSE(id.empty());
            ids.insert(id);
            ++streams;
        }
    }
    EXPECT_EQ(streams, ids.size());
}
