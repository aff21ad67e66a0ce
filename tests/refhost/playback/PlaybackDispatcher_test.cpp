#include "refhost/playback/PlaybackDispatcher.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "refhost/base/HostStatus.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

class PlaybackDispatcherTest : public testing::Test
{
protected:
    PlaybackDispatcherTest()
        : service(
              makeSettings(), [] { return nullptr; }, 0),
          dispatcher(service)
    {
        record.setCameraId(1);
        record.setRecordBeginTime(1000);
        record.setRecordEndTime(1100);
        info.trackId = "trackID=0";
        info.mediaType = "video";
        info.encodingName = "H264";
        info.clockRate = 90000;
    }

    PlaybackSettings makeSettings()
    {
        PlaybackSettings settings;
        settings.clock = &clock;
        return settings;
    }

    static SafePointer<FakeTransport> connection()
    {
        return SafePointer<FakeTransport>(new FakeTransport(std::make_shared<Wire>()));
    }

    ManualClock clock;
    RecordInfo record;
    SubMediaInfo info;
    PlaybackService service;
    PlaybackDispatcher dispatcher;
};

TEST_F(PlaybackDispatcherTest, ASessionIsMadeOnce)
{
    dispatcher.init("a", record);
    const auto first = dispatcher.find("a");
    record.setCameraId(2);
    dispatcher.init("a", record);
    EXPECT_EQ(dispatcher.find("a"), first);
    EXPECT_EQ(dispatcher.sessionCount(), 1U);
}

TEST_F(PlaybackDispatcherTest, TheLastTrackEndsTheSession)
{
    dispatcher.init("a", record);
    ASSERT_EQ(dispatcher.setup("a", info, 1364, connection()), 0);
    info.trackId = "trackID=1";
    info.mediaType = "audio";
    ASSERT_EQ(dispatcher.setup("a", info, 1364, connection()), 0);
    EXPECT_EQ(dispatcher.stop("a", "trackID=0"), 0);
    EXPECT_EQ(dispatcher.sessionCount(), 1U);
    EXPECT_EQ(dispatcher.stop("a", "trackID=1"), 0);
    EXPECT_EQ(dispatcher.sessionCount(), 0U);
    EXPECT_EQ(dispatcher.stop("a", "trackID=1"), hostTrackUnknown);
}

TEST_F(PlaybackDispatcherTest, ARefusedSetupLeavesNoSession)
{
    EXPECT_EQ(dispatcher.setup("a", info, 1364, connection()), hostTrackUnknown);
    dispatcher.init("a", record);
    EXPECT_EQ(dispatcher.setup("a", info, 1364, SafePointer<IConnection>()), hostConnectionUnusable);
    EXPECT_EQ(dispatcher.sessionCount(), 0U);
    dispatcher.init("a", record);
    dispatcher.dropEmpty("a");
    EXPECT_EQ(dispatcher.sessionCount(), 0U);
}

TEST_F(PlaybackDispatcherTest, WithoutRecordingsThereIsNothingToPlayOrDescribe)
{
    dispatcher.init("a", record);
    ASSERT_EQ(dispatcher.setup("a", info, 1364, connection()), 0);
    EXPECT_EQ(dispatcher.find("a")->play("trackID=0"), hostStreamNotReady);
    service.pool().runDue();
    EXPECT_EQ(dispatcher.find("a")->play("trackID=0"), hostRangeInvalid);
    MediaInfo described;
    EXPECT_EQ(service.catalog().describe(record, described), hostStreamNotReady);
    service.pool().runDue();
    EXPECT_EQ(service.catalog().describe(record, described), hostRecordingUnknown);
}

TEST_F(PlaybackDispatcherTest, MissingRecordingIsCachedForAShortTime)
{
    MediaInfo described;
    service.catalog().describe(record, described);
    service.pool().runDue();
    clock.advance(PlaybackCatalog::maxNothingAge - std::chrono::milliseconds(1));
    EXPECT_EQ(service.catalog().describe(record, described), hostRecordingUnknown);
    clock.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(service.catalog().describe(record, described), hostStreamNotReady);
}

TEST_F(PlaybackDispatcherTest, AnIntervalThatEndsBeforeItStartsIsEmptyAtOnce)
{
    record.setRecordEndTime(1000);
    MediaInfo described;
    EXPECT_EQ(service.catalog().describe(record, described), hostRecordingUnknown);
    record.setRecordEndTime(10);
    EXPECT_EQ(service.catalog().describe(record, described), hostRecordingUnknown);
}

TEST_F(PlaybackDispatcherTest, OldestIntervalIsForgottenFirst)
{
    MediaInfo described;
    for (std::size_t i = 0; i < 3 * PlaybackCatalog::max; ++i)
    {
        record.setRecordEndTime(2000 + i);
        EXPECT_EQ(service.catalog().describe(record, described), hostStreamNotReady);
    }
    service.pool().runDue();
    EXPECT_EQ(service.catalog().describe(record, described), hostRecordingUnknown);
    record.setRecordEndTime(2000);
    EXPECT_EQ(service.catalog().describe(record, described), hostStreamNotReady) << "it was dropped";
}

TEST_F(PlaybackDispatcherTest, SessionsAreMadeAndEndedOnManyThreads)
{
    PlaybackSettings settings;
    PlaybackService busy(
        settings, [] { return nullptr; }, 2);
    PlaybackDispatcher many(busy);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back(
            [&, thread]
            {
                for (int i = 0; i < 50; ++i)
                {
                    const std::string id = std::to_string(thread) + "/" + std::to_string(i);
                    many.init(id, record);
                    EXPECT_EQ(many.setup(id, info, 1364, connection()), 0);
                    many.find(id)->play(info.trackId);
                    many.find(id)->setRange(info.trackId, 1, 50, 0, true);
                    many.find(id)->play(info.trackId);
                    EXPECT_EQ(many.stop(id, info.trackId), 0);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(many.sessionCount(), 0U);
}

}  // namespace
}  // namespace test
}  // namespace refhost
