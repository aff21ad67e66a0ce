#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/refhost/playback/PlaybackFakes.h"

namespace refhost
{
namespace test
{
namespace
{

/// Sessions whose workers run on threads, as in the server.
class PlaybackThreads : public PlaybackFixture
{
protected:
    PlaybackThreads()
    {
        settings.clock = &HostClock::system();
        recordings->set({{at(0), at(20)}, {at(100), at(120)}});
    }

    ~PlaybackThreads() override
    {
        threaded.close();
    }

    std::shared_ptr<PlaybackSession> makeThreaded()
    {
        return std::make_shared<PlaybackSession>(PlaybackSession::Interval{at(0), at(120), at(0)},
                                                 std::make_unique<FakeSource>(recordings), threaded,
                                                 settings);
    }

    WorkPool threaded{WorkPool::Options()};
};

TEST_F(PlaybackThreads, MethodsRaceWithTheWorkers)
{
    session = makeThreaded();
    const auto frames = setUp(video);
    const auto audioWire = setUp(audio);
    const auto drive = [this](const char* track, int seed)
    {
        for (int i = 0; i < 300; ++i)
        {
            const double begin = (seed + i * 7) % 110;
            session->setRange(track, begin, 120, i % 3 == 0 ? playRangeReplay | playRangeUnpaced : 0, true);
            session->play(track);
            session->setSpeed(track, i % 5 == 0 ? 8 : 1, 1 + i % 3);
            session->play(track);
            double from = 0;
            double to = 0;
            session->range(track, from, to);
            RTPPacketInfo info;
            session->firstPacket(track, info);
            if (i % 4 == 0)
            {
                session->pause(track);
            }
        }
    };
    std::vector<std::thread> clients;
    clients.emplace_back(drive, video, 0);
    clients.emplace_back(drive, audio, 3);
    clients.emplace_back(
        [&]
        {
            for (int i = 0; i < 300; ++i)
            {
                frames->ready();
                audioWire->ready();
            }
        });
    for (std::thread& client : clients)
    {
        client.join();
    }
    session->end();
    EXPECT_TRUE(session->empty());
    EXPECT_TRUE(frames->contiguous());
    EXPECT_TRUE(audioWire->contiguous());
}

TEST_F(PlaybackThreads, NothingLeavesAfterAPauseHasReturned)
{
    session = makeThreaded();
    const auto wire = setUp(video);
    for (int i = 0; i < 50; ++i)
    {
        session->setRange(video, i % 15, 120, playRangeUnpaced, true);
        int status = hostStreamNotReady;
        for (int tries = 0; tries < 1'000'000 && status == hostStreamNotReady; ++tries)
        {
            std::this_thread::yield();
            status = session->play(video);
        }
        ASSERT_EQ(status, 0);
        session->pause(video);
        const auto count = wire->units().size();
        wire->ready();
        std::this_thread::yield();
        ASSERT_EQ(wire->units().size(), count);
    }
    EXPECT_TRUE(wire->contiguous());
}

}  // namespace
}  // namespace test
}  // namespace refhost
