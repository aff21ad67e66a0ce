#include "refhost/live/LiveSession.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/refhost/live/LiveFixture.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr std::chrono::seconds bound(30);

/// A gate that opens once and lets all waiting threads continue.
class Gate
{
public:
    void open()
    {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            open_ = true;
        }
        changed_.notify_all();
    }

    bool wait()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, bound, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

/// A transport whose first send blocks until released, as if the thread were preempted there.
class StuckTransport : public FakeTransport
{
public:
    StuckTransport(std::shared_ptr<Wire> wire, Gate& entered, Gate& leave)
        : FakeTransport(std::move(wire)), entered_(entered), leave_(leave)
    {
    }

    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                    bool more) override
    {
        if (!stuck_.exchange(true))
        {
            entered_.open();
            EXPECT_TRUE(leave_.wait());
        }
        return FakeTransport::send(unit, firstPacket, header, more);
    }

private:
    Gate& entered_;
    Gate& leave_;
    std::atomic<bool> stuck_{false};
};

class LiveSessionTest : public LiveFixture
{
protected:
    void deliverBesideBusyAudio(bool byPlay);
};

TEST_F(LiveSessionTest, AFanOutDoesNotWaitForASessionThatIsBusyElsewhere)
{
    setUp("first", video);
    ticks(3);
    const auto wire = std::make_shared<Wire>();
    Gate entered;
    Gate leave;
    EXPECT_EQ(0, dispatcher->initTrack(stream, "slow", video, trackInfo(video), 1364));
    EXPECT_EQ(0,
              dispatcher->addConnection(stream, "slow", video,
                                        SafePointer<IConnection>(new StuckTransport(wire, entered, leave))));
    const auto other = setUp("other", video);
    play("other", video);

    std::thread busy([this] { EXPECT_EQ(0, play("slow", video)); });
    ASSERT_TRUE(entered.wait());
    // Five more frames while the other thread holds the slow session: this thread never blocks.
    ticks(5);
    EXPECT_EQ(8U, other->units().size());
    leave.open();
    busy.join();
    // The thread that held the session sent the rest.
    EXPECT_EQ(8U, wire->units().size());
    EXPECT_TRUE(wire->contiguous());
}

/// Frames arrive while another thread is sending the session's audio, after the video.
void LiveSessionTest::deliverBesideBusyAudio(bool byPlay)
{
    Gate entered;
    Gate leave;
    const auto frames = setUp("s", video);
    play("s", video);
    tickVideo();
    const auto wire = std::make_shared<Wire>();
    EXPECT_EQ(0, dispatcher->initTrack(stream, "s", audio, trackInfo(audio), 1364));
    SafePointer<StuckTransport> transport(new StuckTransport(wire, entered, leave));
    EXPECT_EQ(0, dispatcher->addConnection(stream, "s", audio, transport));
    tickAudio();
    if (!byPlay)
    {
        transport->hold();
        play("s", audio);
    }
    std::thread busy(
        [&]
        {
            if (byPlay)
            {
                play("s", audio);
            }
            else
            {
                transport->release();
            }
        });
    ASSERT_TRUE(entered.wait());
    tickVideo();
    tickVideo();
    EXPECT_EQ(1U, frames->units().size());
    leave.open();
    busy.join();
    EXPECT_EQ(3U, frames->units().size());
}

TEST_F(LiveSessionTest, LockHolderSendsUnitsThatArrivedMeanwhile)
{
    deliverBesideBusyAudio(true);
}

TEST_F(LiveSessionTest, PumpingThreadSendsUnitsThatArrivedMeanwhile)
{
    deliverBesideBusyAudio(false);
}

TEST_F(LiveSessionTest, RemoveWaitsForAPacketThatIsJustLeaving)
{
    const auto wire = std::make_shared<Wire>();
    Gate entered;
    Gate leave;
    EXPECT_EQ(0, dispatcher->initTrack(stream, "s", video, trackInfo(video), 1364));
    EXPECT_EQ(0, dispatcher->addConnection(
                     stream, "s", video, SafePointer<IConnection>(new StuckTransport(wire, entered, leave))));
    play("s", video);
    std::thread fanOut([this] { tick(); });
    ASSERT_TRUE(entered.wait());
    std::atomic<bool> removed{false};
    std::thread remover(
        [&]
        {
            EXPECT_EQ(0, remove("s", video));
            // No packet is sent from here on.
            EXPECT_EQ(9U, wire->packets.size());
            removed = true;
        });
    EXPECT_FALSE(removed);
    leave.open();
    fanOut.join();
    remover.join();
    EXPECT_EQ(9U, wire->packets.size());
}

TEST_F(LiveSessionTest, ViewersComeAndGoWhileUnitsFlow)
{
    constexpr int threads = 4;
    constexpr int iterations = 40;
    std::atomic<bool> done{false};
    const auto constant = setUp("constant", video);
    play("constant", video);
    std::vector<std::vector<std::shared_ptr<Wire>>> wires(threads);

    std::thread fanOut(
        [&]
        {
            for (int i = 0; i < 2000000 && !done; ++i)
            {
                tickVideo();
                if (i % 50 == 49)
                {
                    std::this_thread::yield();
                }
            }
        });
    std::thread audioThread(
        [&]
        {
            for (int i = 0; i < 2000000 && !done; ++i)
            {
                tickAudio();
            }
        });
    std::vector<std::thread> viewers;
    for (int number = 0; number < threads; ++number)
    {
        viewers.emplace_back(
            [&, number]
            {
                for (int iteration = 0; iteration < iterations; ++iteration)
                {
                    const std::string session = std::to_string(number) + "-" + std::to_string(iteration);
                    for (const char* track : {video, audio})
                    {
                        auto wire = std::make_shared<Wire>();
                        wire->traits.maxCatchUpUnits = iteration % 2 == 0 ? 0 : 4;
                        wire->traits.joinsUnits = iteration % 5 < 3;
                        wire->capacity = iteration % 3 == 0 ? 40 : 4000;
                        SafePointer<FakeTransport> transport(new FakeTransport(wire));
                        EXPECT_EQ(0, dispatcher->initTrack(stream, session, track, trackInfo(track), 1364));
                        EXPECT_EQ(0, dispatcher->addConnection(stream, session, track, transport));
                        transport->hold();
                        EXPECT_EQ(0, play(session, track));
                        rtpInfo(session, track);
                        transport->release();
                        wires[static_cast<std::size_t>(number)].push_back(wire);
                    }
                    pause(session, iteration % 2 == 0 ? video : audio);
                    play(session, iteration % 2 == 0 ? video : audio);
                    wires[static_cast<std::size_t>(number)].back()->ready();
                    for (const char* track : {video, audio})
                    {
                        EXPECT_EQ(0, remove(session, track));
                        auto& wire = *wires[static_cast<std::size_t>(number)].back();
                        const std::lock_guard<std::mutex> guard(wire.mutex);
                        wire.capacity = 0;
                    }
                }
            });
    }
    for (std::thread& viewer : viewers)
    {
        viewer.join();
    }
    done = true;
    fanOut.join();
    audioThread.join();

    EXPECT_EQ(1, source->viewers.load());
    EXPECT_EQ(1U, dispatcher->trackCount());
    EXPECT_TRUE(constant->contiguous());
    for (const auto& own : wires)
    {
        EXPECT_EQ(2U * iterations, own.size());
        for (const auto& wire : own)
        {
            EXPECT_TRUE(wire->contiguous());
            EXPECT_TRUE(wire->packets.empty() || wire->packets.front().unit->keyFrame);
        }
    }
}

TEST_F(LiveSessionTest, TracksOfOneSessionAreUsedByManyThreadsAtOnce)
{
    const auto frames = setUp("s", video);
    const auto audioWire = setUp("s", audio);
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
    {
        threads.emplace_back(
            [this, number]
            {
                for (int i = 0; i < 200; ++i)
                {
                    const char* track = (number + i) % 2 == 0 ? video : audio;
                    play("s", track);
                    RTPPacketInfo info;
                    dispatcher->firstPacketOfPlay("s", track, info);
                    if (i % 3 == 0)
                    {
                        pause("s", track);
                    }
                }
            });
    }
    ticks(200);
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    for (const char* track : {video, audio})
    {
        EXPECT_EQ(0, remove("s", track));
    }
    EXPECT_EQ(0, source->viewers.load());
    EXPECT_TRUE(frames->contiguous());
    EXPECT_TRUE(audioWire->contiguous());
}

}  // namespace
}  // namespace test
}  // namespace refhost
