#include <gtest/gtest.h>

#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/live/TrackSenderFixture.h"

namespace refhost
{
namespace test
{
namespace
{

/// Starts of viewers that join in the middle of a GOP.
class TrackSenderStart : public TrackSenderTest
{
protected:
    /// Milliseconds of video received, from the first unit to the last.
    static std::int64_t spanMs(Wire& wire)
    {
        const auto units = wire.units();
        return (nsOf(units.back()->captureTime) - nsOf(units.front()->captureTime)) / 1'000'000;
    }
};

TEST_F(TrackSenderStart, APacedStartGoesThroughThePastAtItsRate)
{
    settings.start = {LiveStart::Mode::paced, 4};
    make();
    setUp("watcher", video);
    play("watcher", video);
    ticks(21);
    const auto wire = setUp("s", video);
    play("s", video);
    EXPECT_EQ(wire->units().size(), 1U) << "the key frame at once";
    for (int frames = 1; frames <= 5; ++frames)
    {
        tick();
        EXPECT_LE(spanMs(*wire), 4 * frames * frameMs);
        EXPECT_GT(spanMs(*wire), 4 * frames * frameMs - 2 * frameMs) << frames;
    }
    ticks(5);
    EXPECT_EQ(nsOf(wire->units().back()->captureTime), nsOf(clock.now())) << "it has caught up";
    EXPECT_TRUE(wire->contiguous());
    ticks(20);
    EXPECT_EQ(nsOf(wire->units().back()->captureTime), nsOf(clock.now())) << "and stays there";
    EXPECT_EQ(statistics("s", video).unitsSkipped, 0U);
}

TEST_F(TrackSenderStart, APacedStartHoldsOverDatagramsToo)
{
    settings.start = {LiveStart::Mode::paced, 8};
    make();
    setUp("watcher", video);
    play("watcher", video);
    ticks(21);
    const auto wire = setUp("s", video, 2);
    play("s", video);
    ticks(2);
    EXPECT_GT(spanMs(*wire), 6 * 2 * frameMs) << "faster than the transport would catch up";
}

TEST_F(TrackSenderStart, AudioKeepsToTheFramesInAPacedStart)
{
    settings.start = {LiveStart::Mode::paced, 2};
    make();
    setUp("watcher", video);
    setUp("watcher", audio);
    play("watcher", video);
    play("watcher", audio);
    ticks(21);
    const auto videoWire = setUp("s", video);
    const auto blocks = setUp("s", audio);
    hold("s");
    play("s", video);
    play("s", audio);
    release("s");
    for (int frames = 0; frames < 30; ++frames)
    {
        tick();
        const std::int64_t apartNs =
            nsOf(videoWire->units().back()->captureTime) - nsOf(blocks->units().back()->captureTime);
        EXPECT_LE(std::abs(apartNs / 1'000'000), 2 * frameMs) << frames;
    }
}

TEST_F(TrackSenderStart, AClientMayAskForAStartOfItsOwn)
{
    setUp("watcher", video);
    play("watcher", video);
    ticks(10);
    const auto wire = setUp("s", video);
    const int before = source->keyRequests.load();
    transport("s", video)->start = LiveStart::Mode::keyFrame;
    play("s", video);
    EXPECT_EQ(source->keyRequests.load(), before + 1);
    ticks(5);
    EXPECT_TRUE(wire->units().empty());
    frame = gop;
    tick();
    ASSERT_EQ(wire->units().size(), 1U);
    EXPECT_TRUE(wire->units().front()->keyFrame);
}

TEST_F(TrackSenderStart, TheReportsOfAllTracksComeBeforeThePast)
{
    setUp("watcher", video);
    setUp("watcher", audio);
    play("watcher", video);
    play("watcher", audio);
    ticks(10);
    const auto videoWire = setUp("s", video);
    const auto blocks = setUp("s", audio);
    hold("s");
    play("s", video);
    play("s", audio);
    transport("s", video)->release();
    EXPECT_TRUE(videoWire->packets.empty()) << "nothing goes while a track is held";
    transport("s", audio)->release();
    ASSERT_FALSE(videoWire->order.empty());
    ASSERT_FALSE(blocks->order.empty());
    EXPECT_EQ(videoWire->order.front(), 'r');
    EXPECT_EQ(blocks->order.front(), 'r');
    EXPECT_GT(videoWire->units().size(), 5U);
}

}  // namespace
}  // namespace test
}  // namespace refhost
