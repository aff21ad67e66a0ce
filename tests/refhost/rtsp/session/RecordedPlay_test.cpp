#include "refhost/rtsp/session/RecordedPlay.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "refhost/base/HostStatus.h"
#include "tests/refhost/rtsp/session/FakeRecording.h"

namespace refhost
{
namespace
{

using test::FakeRecording;
using test::RecordingScript;
using testing::ElementsAre;
using testing::IsEmpty;
using Unit = RangeHeader::Unit;

constexpr RangeHeader::Position second = std::chrono::seconds(1);

class RecordedPlayTest : public testing::Test
{
protected:
    ~RecordedPlayTest() noexcept override {}

    RtspStatus play(const PlayRequest& order, bool playing = false)
    {
        script_->calls.clear();
        return play_.prepare(order, playing, tracks_);
    }

    RtspStatus playRange(const std::string& range)
    {
        PlayRequest order;
        order.range.emplace();
        EXPECT_EQ(RangeHeader::parse(range, *order.range), rtspOk) << range;
        return play(order);
    }

    static PlayRequest rates(std::optional<double> scale, std::optional<double> speed)
    {
        PlayRequest order;
        order.scale = scale;
        order.speed = speed;
        return order;
    }

    const std::shared_ptr<RecordingScript> script_ = std::make_shared<RecordingScript>();
    SafePointer<IRTSPController> controller_{new FakeRecording(script_)};
    RecordedPlay play_{"session", controller_};
    std::vector<std::string> tracks_{"trackID=0", "trackID=1"};
};

TEST_F(RecordedPlayTest, FirstPlayWithoutHeadersUsesTheControllersDefaults)
{
    EXPECT_EQ(play({}), rtspOk);
    EXPECT_THAT(script_->calls, IsEmpty());
    const RecordedPlay::Outcome outcome = play_.outcome(Unit::npt, tracks_);
    EXPECT_EQ(outcome.begin, 0 * second);
    EXPECT_EQ(outcome.end, 60 * second);
    EXPECT_EQ(outcome.speed.scale, 1);
    EXPECT_EQ(outcome.speed.speed, 1);
}

TEST_F(RecordedPlayTest, ARangeGoesToEveryTrack)
{
    EXPECT_EQ(playRange("npt=5-7.5"), rtspOk);
    EXPECT_THAT(script_->calls,
                ElementsAre("setPlayRange trackID=0 5 7.5 0 1", "setPlayRange trackID=1 5 7.5 0 1"));
}

TEST_F(RecordedPlayTest, OpenEndsAreThoseOfTheRecording)
{
    tracks_.pop_back();
    EXPECT_EQ(playRange("npt=5-"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 5 60 0 1"));
    EXPECT_EQ(playRange("npt=-30"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 0 30 0 1"));
}

TEST_F(RecordedPlayTest, NowIsThePresentPosition)
{
    EXPECT_EQ(playRange("npt=now-"), rtspOk);
    EXPECT_THAT(script_->calls, IsEmpty());
}

TEST_F(RecordedPlayTest, AbsoluteTimesAreRelativeToTheRecordingsStart)
{
    tracks_.pop_back();
    EXPECT_EQ(playRange("clock=20231114T221325.25Z-20231114T221330Z"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 5.25 10 0 1"));
    const RecordedPlay::Outcome outcome = play_.outcome(Unit::clock, tracks_);
    EXPECT_EQ(outcome.begin, RecordingScript::beginTime * second + std::chrono::milliseconds(5250));
    EXPECT_EQ(outcome.end, RecordingScript::beginTime * second + 10 * second);
}

TEST_F(RecordedPlayTest, ARecordingIsAsLongAsDescribedWhateverItsUrlNames)
{
    tracks_.pop_back();
    script_->lead = std::chrono::nanoseconds(400000400);
    EXPECT_EQ(playRange("npt=60.2-"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 60.2 60.4 0 1"));
    EXPECT_EQ(playRange("npt=0.2-100"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 0.2 60.4 0 1"));
    EXPECT_EQ(playRange("npt=60.5-"), rtspInvalidRange);
}

TEST_F(RecordedPlayTest, AbsoluteTimesAreExactToTheMicrosecondAndNotBehindTheFirstFrame)
{
    tracks_.pop_back();
    script_->lead = std::chrono::nanoseconds(400000400);
    EXPECT_EQ(playRange("clock=19700101T000000Z-20991231T235959Z"), rtspOk);
    EXPECT_EQ(playRange("clock=19700101T000000Z-99991231T235959.999999Z"), rtspOk);
    const RecordedPlay::Outcome outcome = play_.outcome(Unit::clock, tracks_);
    const RangeHeader::Position first =
        RecordingScript::beginTime * second - std::chrono::microseconds(400001);
    EXPECT_EQ(outcome.begin, first);
    EXPECT_EQ(outcome.end, RecordingScript::beginTime * second + 60 * second);
    PlayRequest backwards = rates(-1, {});
    backwards.range.emplace();
    ASSERT_EQ(RangeHeader::parse("clock=20991231T235959Z-19700101T000000Z", *backwards.range, true), rtspOk);
    EXPECT_EQ(play(backwards), rtspOk);
    EXPECT_EQ(play_.outcome(Unit::clock, tracks_).end, first) << "players clip what is before it";
}

TEST_F(RecordedPlayTest, ATimeThatRoundingPutBehindTheFirstFrameIsTheFirstFrames)
{
    tracks_.pop_back();
    script_->lead = std::chrono::nanoseconds(400000400);
    PlayRequest backwards = rates(-1, {});
    backwards.range.emplace();
    ASSERT_EQ(RangeHeader::parse("clock=20231114T221330Z-20231114T221319.600001Z", *backwards.range, true),
              rtspOk);
    EXPECT_EQ(play(backwards), rtspOk);
    ASSERT_FALSE(script_->calls.empty());
    EXPECT_NE(script_->calls.back().find(" 0 0 1"), std::string::npos) << script_->calls.back();
}

TEST_F(RecordedPlayTest, RequestedTimesAreAnsweredAsTheyWere)
{
    tracks_.pop_back();
    script_->lead = std::chrono::nanoseconds(400000400);
    for (int i = 0; i < 1000; ++i)
    {
        const std::string digits = std::to_string(1'000'000 + i * 997).substr(1);
        EXPECT_EQ(playRange(fmt::format("clock=20231114T221325.{0}Z-20231114T221330.{0}Z", digits)), rtspOk);
        const RecordedPlay::Outcome outcome = play_.outcome(Unit::clock, tracks_);
        const RangeHeader::Position fraction(i * 997);
        ASSERT_EQ(outcome.begin, (RecordingScript::beginTime + 5) * second + fraction) << digits;
        ASSERT_EQ(outcome.end, (RecordingScript::beginTime + 10) * second + fraction) << digits;
    }
}

TEST_F(RecordedPlayTest, RangeBeyondTheRecordingPlaysTheRecordedPart)
{
    tracks_.pop_back();
    EXPECT_EQ(playRange("npt=50-1000"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 50 60 0 1"));
    EXPECT_EQ(playRange("clock=20231114T220000Z-20231114T221330Z"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 0 10 0 1"));
}

TEST_F(RecordedPlayTest, ARangeWithoutAnyPartOfTheRecordingIsInvalidAndChangesNothing)
{
    play({});
    script_->place(20);
    for (const char* const range :
         {"npt=60-", "npt=61-70", "npt=-0", "clock=20231114T221420Z-",
          "clock=20231114T220000Z-20231114T221320Z", "clock=20000101T000000Z-20000102T000000Z"})
    {
        EXPECT_EQ(playRange(range), rtspInvalidRange) << range;
        EXPECT_THAT(script_->calls, IsEmpty()) << range;
    }
}

TEST_F(RecordedPlayTest, EmptyPlayRequestChangesNothingWhileEverythingPlays)
{
    play(rates(2, {}));
    script_->place(20);
    EXPECT_EQ(play({}, true), rtspOk);
    EXPECT_THAT(script_->calls, IsEmpty());
    EXPECT_EQ(play_.outcome(Unit::npt, tracks_).speed.scale, 2);
}

TEST_F(RecordedPlayTest, ScaleAndSpeedAreSetForEveryTrackAndReportedAsSet)
{
    EXPECT_EQ(play(rates(2, 0.5)), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setSpeed trackID=0 2 0.5", "setSpeed trackID=1 2 0.5"));
    tracks_.pop_back();
    EXPECT_EQ(play(rates(1000, {})), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setSpeed trackID=0 32 1"));
    EXPECT_EQ(play_.outcome(Unit::npt, tracks_).speed.scale, 32);
    EXPECT_EQ(play(rates(-2, {})), rtspOk);
    EXPECT_EQ(play_.outcome(Unit::npt, tracks_).speed.scale, -2);
}

TEST_F(RecordedPlayTest, BackwardsPlayingStartsAtTheLaterEnd)
{
    tracks_.pop_back();
    PlayRequest order = rates(-1, {});
    for (const auto& [range, call] :
         {std::pair{"npt=30-10", "setPlayRange trackID=0 30 10 0 1"},
          {"npt=10-30", "setPlayRange trackID=0 30 10 0 1"},
          {"npt=30-", "setPlayRange trackID=0 30 0 0 1"},
          {"npt=-30", "setPlayRange trackID=0 60 30 0 1"},
          {"npt=100-30", "setPlayRange trackID=0 60 30 0 1"},
          {"clock=20991231T235959Z-19700101T000000Z", "setPlayRange trackID=0 60 0 0 1"}})
    {
        order.range.emplace();
        ASSERT_EQ(RangeHeader::parse(range, *order.range, true), rtspOk) << range;
        EXPECT_EQ(play(order), rtspOk) << range;
        EXPECT_EQ(script_->calls.back(), call) << range;
    }
    const RecordedPlay::Outcome outcome = play_.outcome(Unit::clock, tracks_);
    EXPECT_EQ(outcome.begin, (RecordingScript::beginTime + 60) * second);
    EXPECT_EQ(outcome.end, RecordingScript::beginTime * second);
    order.range.emplace();
    ASSERT_EQ(RangeHeader::parse("clock=20000101T000000Z-", *order.range, true), rtspOk);
    EXPECT_EQ(play(order), rtspInvalidRange) << "nothing was recorded before";
    ASSERT_EQ(RangeHeader::parse("npt=70-61", *order.range, true), rtspOk);
    EXPECT_EQ(play(order), rtspInvalidRange);
}

TEST_F(RecordedPlayTest, WithoutRateControlScaleIsADirection)
{
    tracks_.pop_back();
    PlayRequest order = rates(-8, {});
    order.replay = order.noRateControl = true;
    EXPECT_EQ(play(order), rtspOk);
    EXPECT_EQ(script_->calls.front(), "setSpeed trackID=0 -1 1");
}

TEST_F(RecordedPlayTest, OpenAndTooWideAbsoluteRangesAreCutToTheRecording)
{
    tracks_.pop_back();
    for (const char* const range :
         {"clock=19700101T000000Z-20991231T235959Z", "clock=20000101T000000Z-", "clock=-20991231T235959Z"})
    {
        EXPECT_EQ(playRange(range), rtspOk) << range;
        EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 0 60 0 1")) << range;
        const RecordedPlay::Outcome outcome = play_.outcome(Unit::clock, tracks_);
        EXPECT_EQ(outcome.begin, RecordingScript::beginTime * second);
        EXPECT_EQ(outcome.end, (RecordingScript::beginTime + 60) * second);
    }
}

TEST_F(RecordedPlayTest, PlayTimeCountedFromNtpsEpochIsAcceptedAndAnsweredLikewise)
{
    tracks_.pop_back();
    EXPECT_EQ(playRange("clock=19000101T000005Z-19000101T000059.5Z"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 5 59.5 0 1"));
    std::string text;
    const RecordedPlay::Outcome outcome = play_.outcome(Unit::clock, tracks_);
    RangeHeader::append(text, Unit::clock, outcome.begin, outcome.end);
    EXPECT_EQ(text, "clock=19000101T000005.000Z-19000101T000059.500Z");
    EXPECT_EQ(playRange("clock=20231114T221325Z-"), rtspOk);
    EXPECT_EQ(play_.outcome(Unit::clock, tracks_).begin, (RecordingScript::beginTime + 5) * second);
}

TEST_F(RecordedPlayTest, APlayWithoutScaleIsOfNormalSpeedAgain)
{
    tracks_.pop_back();
    play(rates(4, 2));
    EXPECT_EQ(playRange("npt=10-"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setSpeed trackID=0 1 1", "setPlayRange trackID=0 10 60 0 1"));
    EXPECT_EQ(playRange("npt=10-"), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 10 60 0 1")) << "it is already";
}

TEST_F(RecordedPlayTest, ReplayIsAKindOfRangeThatCarriesTheRequestsNumber)
{
    tracks_.pop_back();
    PlayRequest order;
    order.replay = true;
    order.sequence = 0xAB;
    EXPECT_EQ(play(order), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 0 0 " + std::to_string(0xAB01) + " 0"))
        << "the kind alone, the place stays";
    order.noRateControl = true;
    order.keyFramesOnly = true;
    order.range = RangeHeader{Unit::npt, second, std::nullopt};
    EXPECT_EQ(play(order), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPlayRange trackID=0 1 60 " + std::to_string(0xAB07) + " 1"));
}

TEST_F(RecordedPlayTest, MinDistanceOfKeyFramesIsNeverShortened)
{
    tracks_.pop_back();
    PlayRequest order;
    order.replay = true;
    order.keyFramesOnly = true;
    for (const auto& [ms, tens] : {std::pair{4000, 400}, {4001, 401}, {1, 1}, {1'000'000'000, 0x7fff}})
    {
        order.keyFrameDistance = std::chrono::milliseconds(ms);
        EXPECT_EQ(play(order), rtspOk);
        EXPECT_THAT(script_->calls,
                    ElementsAre("setPlayRange trackID=0 0 0 " + std::to_string(tens * 0x10000 + 5) + " 0"));
    }
}

TEST_F(RecordedPlayTest, WithoutReplayTheOtherKindsAreIgnored)
{
    PlayRequest order;
    order.noRateControl = true;
    order.keyFramesOnly = true;
    order.sequence = 9;
    EXPECT_EQ(play(order), rtspOk);
    EXPECT_THAT(script_->calls, IsEmpty());
}

TEST_F(RecordedPlayTest, CodesOfTheControllerBecomeStatus)
{
    script_->result("setPlayRange", hostRangeInvalid);
    EXPECT_EQ(playRange("npt=5-"), rtspInvalidRange);
    script_->result("setPlayRange", 0);
    script_->result("setSpeed", hostTrackUnknown);
    EXPECT_EQ(play(rates(2, {})), rtspInvalidState);
    script_->result("setSpeed", 0);
    EXPECT_EQ(play(rates(2, {})), rtspOk);
    EXPECT_EQ(script_->countOf("setSpeed"), 2) << "what failed counts as not done";
}

TEST_F(RecordedPlayTest, PausePointIsSetWherePlayingComesToIt)
{
    playRange("npt=10-30");
    script_->place(12);
    script_->calls.clear();
    RangeHeader point;
    ASSERT_EQ(RangeHeader::parsePoint("npt=15.5", point), rtspOk);
    EXPECT_EQ(play_.pauseAt(point, tracks_), rtspOk);
    ASSERT_EQ(RangeHeader::parsePoint("clock=20231114T221340Z", point), rtspOk);
    EXPECT_EQ(play_.pauseAt(point, tracks_), rtspOk);
    EXPECT_THAT(script_->calls, ElementsAre("setPauseRange trackID=0 15.5", "setPauseRange trackID=1 15.5",
                                            "setPauseRange trackID=0 20", "setPauseRange trackID=1 20"));
    for (const char* const other : {"npt=11", "npt=30.5", "npt=100", "clock=20231114T221300Z"})
    {
        ASSERT_EQ(RangeHeader::parsePoint(other, point), rtspOk);
        EXPECT_EQ(play_.pauseAt(point, tracks_), rtspInvalidRange) << other;
    }
    EXPECT_EQ(script_->countOf("setPauseRange"), 4);
}

}  // namespace
}  // namespace refhost
