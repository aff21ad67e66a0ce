#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "refhost/talkback/SharedOutput.h"
#include "refhost/talkback/outputs/ClockedOutput.h"
#include "refhost/talkback/outputs/OutputPlayer.h"
#include "support/StatusCode.h"
#include "tests/CapturedOutput.h"
#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/talkback/TalkFakes.h"

using namespace refhost;
using refhost::test::Bytes;
using refhost::test::FakeTransport;
using refhost::test::RtpPacket;
using refhost::test::Wire;

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::size_t entriesOf(const char* folder)
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
    {
        ++count;
    }
    return count;
}

// How long the threads compete; set it longer for a thorough run.
milliseconds churnTime()
{
    const char* const seconds = std::getenv("OV_CHURN_SECONDS");
    return milliseconds(seconds == nullptr ? 1500 : 1000 * std::atoi(seconds));
}

// CPU time of the thread of that name, in clock ticks.
long ticksOf(const std::string& name)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::string found;
        std::ifstream(entry.path() / "comm") >> found;
        if (found != name)
        {
            continue;
        }
        std::ifstream stat(entry.path() / "stat");
        std::string field;
        long user = 0;
        long system = 0;
        for (int i = 0; i < 13; ++i)
        {
            stat >> field;
        }
        stat >> user >> system;
        return user + system;
    }
    return -1;
}

// The manager with this host's own threads, dispatchers, decoders and player.
class TalkBackChurn : public testing::Test
{
protected:
    ~TalkBackChurn() noexcept override {}

    void SetUp() override
    {
        manager_->setMediaPlayer(SafePointer<IMediaPlayer>(new OutputPlayer(
            std::make_unique<ClockedOutput>(HostClock::system()), {48000, 1}, milliseconds(60))));
    }

    int add(const std::string& session)
    {
        const SubMediaInfo track = *backChannelOf(Codec::pcmu);
        return manager_->initSession(session, track.trackId, track, 1364);
    }

    int connect(const std::string& session, const std::shared_ptr<Wire>& wire)
    {
        return manager_->addSessionConnection(session, SafePointer<IConnection>(new FakeTransport(wire)));
    }

    static void bring(Wire& wire, const Bytes& packet, bool rtcp = false)
    {
        std::shared_ptr<TransportListener> listener;
        {
            const std::lock_guard<std::mutex> guard(wire.mutex);
            listener = wire.listener.lock();
        }
        if (listener && rtcp)
        {
            listener->onRtcp(packet.data(), packet.size());
        }
        else if (listener)
        {
            listener->onRtp(packet.data(), packet.size());
        }
    }

    // One client's session, with every query that a host may make meanwhile. The worker, or another thread
    // that clears stopped sessions, may end it at any moment.
    void live(int thread, int iteration)
    {
        const std::string session = std::to_string(thread) + "-" + std::to_string(iteration);
        const auto wire = std::make_shared<Wire>();
        unexpected_ += add(session) == 0 ? 0 : 1;
        expectDoneOrGone(connect(session, wire));
        expectDoneOrGone(manager_->startAudio(session));
        RtpPacket packet;
        packet.ssrc = static_cast<std::uint32_t>(thread);
        for (int i = 0; i < 5; ++i)
        {
            packet.sequence = static_cast<std::uint16_t>(i == 2 ? 40 : i);
            packet.timestamp = static_cast<std::uint32_t>(i) * 160;
            bring(*wire, packet.bytes());
            bring(*wire, Bytes(static_cast<std::size_t>(i), 0x80));
            bring(*wire, Bytes(static_cast<std::size_t>(i), 0x81), true);
            bool playing = false;
            int ssrc = 0;
            expectDoneOrGone(manager_->getConnetionState(session, playing));
            expectDoneOrGone(manager_->getTrackSSRC(session, ssrc));
            manager_->findSession(session);
            unexpected_ += manager_->getSessionNum() < 0 ? 1 : 0;
            std::this_thread::sleep_for(milliseconds(iteration % 4));
        }
        expectDoneOrGone(manager_->pauseAudio(session));
        if (iteration % 3 == 0)
        {
            expectDoneOrGone(manager_->startAudio(session));
        }
        if (iteration % 5 == 0)
        {
            const std::lock_guard<std::mutex> guard(wire->mutex);
            wire->status = SendStatus::closed;
        }
        if (iteration % 7 == 0)
        {
            manager_->clearStopSession();
        }
        expectDoneOrGone(manager_->stopAudio(session));
    }

    // Counted, because a test's messages are lost while the library's lines are suppressed.
    void expectDoneOrGone(int result)
    {
        unexpected_ += result == statusSuccess || result == statusRefused ? 0 : 1;
    }

    std::atomic<int> unexpected_{0};

    const SafePointer<OVAudioBackDispatcherMgr> manager_ = OVAudioBackDispatcherMgr::getInstance();
};

}  // namespace

TEST_F(TalkBackChurn, SessionsComeAndGoOnManyThreadsAndLeaveNothing)
{
    // A sanitizer starts a thread of its own with the first one.
    std::thread([] {}).join();
    const std::size_t threadsBefore = entriesOf("/proc/self/task");
    const std::size_t filesBefore = entriesOf("/proc/self/fd");
    auto output = std::make_unique<CapturedOutput>();
    ASSERT_EQ(0, manager_->start());
    const auto end = Clock::now() + churnTime();
    std::array<std::atomic<int>, 4> iterations{};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back(
            [this, thread, end, &iterations]
            {
                while (Clock::now() < end)
                {
                    live(thread, iterations.at(static_cast<std::size_t>(thread))++);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    const bool running = manager_->isRunning();
    const int sessionsLeft = manager_->getSessionNum();
    manager_->stop();
    output.reset();
    EXPECT_EQ(0, unexpected_) << "an operation was neither done nor was its session gone";
    EXPECT_TRUE(running);
    EXPECT_EQ(0, sessionsLeft);
    EXPECT_FALSE(manager_->isRunning());
    EXPECT_EQ(threadsBefore, entriesOf("/proc/self/task"));
    EXPECT_EQ(filesBefore, entriesOf("/proc/self/fd"));
    for (const std::atomic<int>& count : iterations)
    {
        EXPECT_LT(2, count);
    }
}

TEST_F(TalkBackChurn, ServerThatStopsInMidTalkLeavesNothing)
{
    CapturedOutput output;
    for (int turn = 0; turn < 5; ++turn)
    {
        std::vector<std::shared_ptr<Wire>> wires;
        ASSERT_EQ(0, manager_->start());
        for (int i = 0; i < 4; ++i)
        {
            wires.push_back(std::make_shared<Wire>());
            const std::string session = std::to_string(i);
            ASSERT_EQ(0, add(session));
            ASSERT_EQ(0, connect(session, wires.back()));
            ASSERT_EQ(0, manager_->startAudio(session));
            bring(*wires.back(), RtpPacket().bytes());
        }
        manager_->stop();
        EXPECT_EQ(0, manager_->getSessionNum());
        for (const auto& wire : wires)
        {
            EXPECT_EQ(1, wire.use_count()) << "the connection is let go";
        }
    }
}

// The bound is a tenth of a core; sanitizers make code several times as slow.
TEST_F(TalkBackChurn, FiftyPlayingSessionsCostTheWorkerLessThanATenthOfACore)
{
    TalkSettings settings;
    settings.maxTalkSenders = 50;
    SharedOutput::instance().configure(settings);
    auto output = std::make_unique<CapturedOutput>();
    std::vector<std::shared_ptr<Wire>> wires;
    for (int i = 0; i < 50; ++i)
    {
        wires.push_back(std::make_shared<Wire>());
        ASSERT_EQ(0, add(std::to_string(i)));
        ASSERT_EQ(0, connect(std::to_string(i), wires.back()));
        ASSERT_EQ(0, manager_->startAudio(std::to_string(i)));
    }
    ASSERT_EQ(0, manager_->start());
    constexpr int seconds = 2;
    const std::string worker = std::string("OVAudioBackDispatcherMgr").substr(0, 15);
    for (int i = 0; i < 5000 && ticksOf(worker) < 0; ++i)
    {
        std::this_thread::sleep_for(milliseconds(1));
    }
    const long before = ticksOf(worker);
    const auto begin = Clock::now();
    for (int number = 0; number < seconds * 50; ++number)
    {
        std::this_thread::sleep_until(begin + milliseconds(20 * number));
        RtpPacket packet;
        packet.sequence = static_cast<std::uint16_t>(number);
        packet.timestamp = static_cast<std::uint32_t>(number) * 160;
        const Bytes bytes = packet.bytes();
        for (const auto& wire : wires)
        {
            bring(*wire, bytes);
        }
    }
    const long spent = ticksOf(worker) - before;
    manager_->stop();
    output.reset();
    SharedOutput::instance().configure(TalkSettings());
    ASSERT_LE(0, before) << "the worker has its name";
    const double share = static_cast<double>(spent) / static_cast<double>(sysconf(_SC_CLK_TCK)) / seconds;
    RecordProperty("share_of_a_core_in_permille", static_cast<int>(share * 1000));
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(share, 1.0);
#else
    EXPECT_LT(share, 0.1);
#endif
}
