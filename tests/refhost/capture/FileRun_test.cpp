#include "refhost/capture/FileRun.h"

#include <future>
#include <thread>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/capture/AbandonedRuns.h"
#include "tests/refhost/capture/ClipFixture.h"
#include "tests/refhost/capture/CollectingSink.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using Clock = SourceRun::Clock;

/// Collects encoded units of both tracks.
class UnitSink : public EncodedUnitSink
{
public:
    void onEncodedUnit(const EncodedUnitPtr& unit) override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        units_.push_back(unit);
        changed_.notify_all();
    }

    void onDiscontinuity() override {}

    std::vector<EncodedUnitPtr> waitFor(std::size_t count)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait_for(guard, 20s, [&] { return units_.size() >= count; });
        return units_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<EncodedUnitPtr> units_;
};

/// What the fixture FileReaderTest does not see of a run; that one has what viewers see of both readers.
class FileRunTest : public ClipFixture
{
protected:
    SourceRun::Setup setup(const std::string& path)
    {
        SourceRun::Setup setup;
        setup.config.source.kind = SourceConfig::Kind::file;
        setup.config.source.location = path;
        setup.config.audioCodec = Codec::pcma;
        setup.title = "file";
        setup.mediaTap = tap;
        setup.events.described = [this] { described.set_value(); };
        setup.events.ended = [this](const SourceFailure& why) { ended.set_value(why.text); };
        setup.events.stopped = [this] { stopped.set_value(); };
        return setup;
    }

    std::string makeMatroska(const std::string& frames = "bframes=0")
    {
        return makeClip(
            "videotestsrc num-buffers=20 ! video/x-raw,format=I420,width=160,height=90,framerate=25/1 ! "
            "x264enc "
            "key-int-max=10 " +
            frames +
            " ! h264parse ! matroskamux name=mux ! filesink location=CLIP "
            "audiotestsrc num-buffers=40 samplesperbuffer=160 ! audio/x-raw,rate=8000,channels=1 ! alawenc ! "
            "mux.");
    }

    std::shared_ptr<MediaTap> tap = std::make_shared<MediaTap>();
    std::promise<void> described;
    std::promise<std::string> ended;
    std::promise<void> stopped;
};

TEST_F(FileRunTest, RecordingsGetFramesInRealTimeWithDecodeTimesThatIncrease)
{
    const auto sink = std::make_shared<UnitSink>();
    tap->add(sink);
    const MonotonicTime before = HostClock::system().now();
    FileRun run(setup(makeMatroska("bframes=2 b-adapt=false")));
    const auto units = sink->waitFor(90);
    ASSERT_GE(units.size(), 90U);
    std::optional<EncodedUnitPtr> lastFrame;
    std::optional<EncodedUnitPtr> lastBlock;
    std::size_t reordered = 0;
    for (const EncodedUnitPtr& unit : units)
    {
        EXPECT_GE(unit->captureTime, before);
        EXPECT_LE(unit->decodeTime, unit->captureTime);
        const bool video = isVideo(unit->format->codec);
        std::optional<EncodedUnitPtr>& last = video ? lastFrame : lastBlock;
        if (last)
        {
            EXPECT_GT(unit->decodeTime, (*last)->decodeTime);
            EXPECT_EQ(unit->format, (*last)->format) << "one object for all iterations";
            reordered += unit->captureTime < (*last)->captureTime ? 1 : 0;
        }
        else
        {
            EXPECT_TRUE(unit->keyFrame);
        }
        last = unit;
    }
    EXPECT_GT(reordered, 5U);
    EXPECT_LT(units.back()->captureTime, HostClock::system().now() + 200ms) << "not ahead of time";
    EXPECT_GE(run.packetCount(), 90U);
}

TEST_F(FileRunTest, EachPayloadSizeGetsItsPackets)
{
    const auto small = std::make_shared<CollectingSink>();
    const auto large = std::make_shared<CollectingSink>();
    SourceRun::Taps taps;
    const auto addTap = [&](int size, const std::shared_ptr<CollectingSink>& sink)
    {
        const auto packets = std::make_shared<PacketTap>();
        packets->add(sink);
        taps[{"trackID=0", size}] = packets;
    };
    addTap(100, small);
    FileRun run(setup(makeMatroska()));
    run.setTaps(taps);
    ASSERT_TRUE(small->waitForUnits(3));
    addTap(1400, large);
    run.setTaps(taps);
    ASSERT_TRUE(large->waitForUnits(3));
    for (const auto& [sink, size] : {std::pair(small, 100U), std::pair(large, 1400U)})
    {
        for (const AccessUnitPtr& unit : sink->units())
        {
            for (const AccessUnit::Packet& packet : unit->packets)
            {
                EXPECT_LE(packet.size, size + AccessUnit::rtpHeaderSize);
            }
        }
    }
    std::vector<SubMediaInfo> tracks;
    ASSERT_TRUE(run.describe(false, tracks));
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].trackId, "trackID=0");
    EXPECT_EQ(tracks[1].encodingName, "PCMA");
}

TEST_F(FileRunTest, StopEndsItWhileItWaitsForTheNextUnit)
{
    FileRun run(setup(makeClip(
        "videotestsrc num-buffers=3 ! video/x-raw,format=I420,width=160,height=90,framerate=1/30 ! x264enc ! "
        "h264parse ! matroskamux ! filesink location=CLIP")));
    ASSERT_EQ(described.get_future().wait_for(20s), std::future_status::ready);
    run.stop();
    ASSERT_TRUE(run.awaitEnd(Clock::now() + 10s));
    EXPECT_EQ(stopped.get_future().wait_for(0s), std::future_status::ready);
    EXPECT_EQ(ended.get_future().wait_for(0s), std::future_status::timeout);
    EXPECT_EQ(run.busyFor(), Clock::duration(0));
}

TEST_F(FileRunTest, ARunThatHangsIsAbandonedAndCountedUntilItEnds)
{
    class HangingSink : public EncodedUnitSink
    {
    public:
        void onEncodedUnit(const EncodedUnitPtr&) override
        {
            if (!std::exchange(hangs_, true))
            {
                reached.set_value();
                released.wait();
            }
        }

        void onDiscontinuity() override {}

        std::promise<void> reached;
        std::promise<void> release;
        std::shared_future<void> released = release.get_future().share();

    private:
        bool hangs_ = false;
    };
    const auto sink = std::make_shared<HangingSink>();
    tap->add(sink);
    auto run = std::make_unique<FileRun>(setup(makeMatroska()));
    ASSERT_EQ(sink->reached.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_FALSE(run->awaitEnd(Clock::now()));
    run.reset();
    EXPECT_EQ(AbandonedRuns::instance().of("file"), 1);
    sink->release.set_value();
    const auto deadline = Clock::now() + 20s;
    while (AbandonedRuns::instance().of("file") > 0 && Clock::now() < deadline)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(AbandonedRuns::instance().of("file"), 0);
    EXPECT_EQ(stopped.get_future().wait_for(0s), std::future_status::timeout);
}

TEST_F(FileRunTest, NothingIsCalledOnceItIsMuted)
{
    {
        FileRun run(setup(folder / "none"));
        run.mute();
    }
    // Whichever came first, the run's end or mute(): it is called once at most, and not later.
    FileRun other(setup(makeMatroska()));
    ASSERT_EQ(described.get_future().wait_for(20s), std::future_status::ready);
    other.mute();
    other.stop();
    ASSERT_TRUE(other.awaitEnd(Clock::now() + 10s));
    EXPECT_EQ(stopped.get_future().wait_for(0s), std::future_status::timeout);
}

TEST_F(FileRunTest, WhatHasToBeDecodedIsLeftToAnotherReader)
{
    const std::string path = makeClip(
        "videotestsrc num-buffers=5 ! video/x-raw,width=160,height=96 ! avenc_mpeg4 ! matroskamux ! "
        "filesink location=CLIP");
    FileRun run(setup(path));
    auto reason = ended.get_future();
    ASSERT_EQ(reason.wait_for(20s), std::future_status::ready);
    EXPECT_NE(reason.get().find("is read by GStreamer"), std::string::npos);
    EXPECT_TRUE(run.mayWorkByAnotherTransport());
    SourceRun::Setup again = setup(path);
    EXPECT_TRUE(FileRun::mayRead(again));
    again.attempt = 1;
    EXPECT_FALSE(FileRun::mayRead(again));
}

TEST_F(FileRunTest, OpusIsPassedOnOnlyWhereItIsConfigured)
{
    const std::string path = makeClip(
        "audiotestsrc num-buffers=50 ! audio/x-raw,rate=48000,channels=1 ! opusenc ! matroskamux ! filesink "
        "location=CLIP");
    SourceRun::Setup configured = setup(path);
    configured.config.audioCodec = Codec::opus;
    FileRun run(std::move(configured));
    ASSERT_EQ(described.get_future().wait_for(20s), std::future_status::ready);
    FileRun other(setup(path));
    ASSERT_EQ(ended.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(other.mayWorkByAnotherTransport());
}

}  // namespace
}  // namespace refhost
