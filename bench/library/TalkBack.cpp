#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakeMediaPlayer.h"

namespace
{

/// Keeps standard output away from lines that the library prints while it lives.
class QuietOutput
{
public:
    QuietOutput() : kept_(::dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(null, STDOUT_FILENO);
        ::close(null);
    }
    ~QuietOutput()
    {
        std::fflush(stdout);
        ::dup2(kept_, STDOUT_FILENO);
        ::close(kept_);
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

private:
    const int kept_;
};

}  // namespace

/// The worker's pass over sessions that all play: media of each, then RTCP of each.
static void WorkerPass(benchmark::State& state)
{
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    {
        const QuietOutput quiet;
        FakeHost::instance().recordCalls(false);
        manager->setMediaPlayer(SafePointer<IMediaPlayer>(new FakeMediaPlayer));
        SubMediaInfo track;
        track.trackId = "trackID=2";
        track.setAudioBackInfoFlag(true);
        for (int i = 0; i < state.range(0); ++i)
        {
            const std::string session = "session" + std::to_string(i);
            manager->initSession(session, track.trackId, track, 1364);
            manager->startAudio(session);
        }
    }
    for (auto _ : state)
    {
        manager->recvAndPlayMediaData();
        manager->recvAndSendRTCPData();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    if (manager->getSessionNum() != state.range(0))
    {
        state.SkipWithError("a session was lost");
    }
    const QuietOutput quiet;
    manager->clearAllSession();
}
BENCHMARK(WorkerPass)->Arg(1)->Arg(100)->Arg(10000);
