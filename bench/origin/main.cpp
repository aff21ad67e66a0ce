#include <pthread.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "bench/origin/OriginLoop.h"

namespace
{

void allowManyDescriptors()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0)
    {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

void serve(int port, int threads, const rtsporigin::CannedMedia& media)
{
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    const auto epoch = rtsporigin::OriginLoop::Clock::now();
    std::list<rtsporigin::OriginLoop> loops;
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i)
    {
        loops.emplace_back(loops.empty() ? port : loops.front().port(), media, epoch, i);
    }
    for (rtsporigin::OriginLoop& loop : loops)
    {
        running.emplace_back([&loop] { loop.run(); });
    }
    std::printf("rtsp://127.0.0.1:%d/camera/1\n", loops.front().port());
    std::fflush(stdout);
    int signal = 0;
    sigwait(&ending, &signal);
    rtsporigin::SendCounts all;
    std::size_t playing = 0;
    for (rtsporigin::OriginLoop& loop : loops)
    {
        loop.stop();
    }
    for (std::thread& thread : running)
    {
        thread.join();
    }
    for (const rtsporigin::OriginLoop& loop : loops)
    {
        all.units += loop.counts().units;
        all.dropped += loop.counts().dropped;
        all.late += loop.counts().late;
        playing += loop.maxPlaying();
    }
    std::printf("{\"playing\": %zu, \"units\": %lld, \"dropped\": %lld, \"late\": %lld}\n", playing,
                static_cast<long long>(all.units), static_cast<long long>(all.dropped),
                static_cast<long long>(all.late));
}

}  // namespace

int main(int argc, char** argv)
{
    int port = 0;
    int threads = 1;
    std::string video;
    std::string audio = "none";
    rtsporigin::CannedMedia media;
    CLI::App app(
        "Is many RTSP cameras at once, on the loopback address: rtsp://127.0.0.1:PORT/camera/1 to N, "
        "interleaved\n"
        "TCP alone. All send the same canned access units, out of step with each other, so that they cost "
        "almost\n"
        "nothing. Prints the first camera's URL when it listens, and after SIGINT or SIGTERM what it sent.");
    app.add_option("--video", video, "H.264 byte stream (Annex B) without B-frames, sent again and again")
        ->required();
    app.add_option("--cameras", media.cameras, "how many")
        ->check(CLI::Range(1, 100'000))
        ->capture_default_str();
    app.add_option("--frame-rate", media.framesASecond, "frames a second")
        ->check(CLI::Range(1, 120))
        ->capture_default_str();
    app.add_option("--audio", audio, "a PCMU tone in blocks as long as a frame at 25 a second, or none")
        ->check(CLI::IsMember({"none", "pcmu"}))
        ->capture_default_str();
    app.add_option("--port", port, "0: any")->check(CLI::Range(0, 65535))->capture_default_str();
    app.add_option("--threads", threads, "how many send")->check(CLI::Range(1, 64))->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    try
    {
        media.video = rtsporigin::CannedVideo::read(video);
        media.tone = rtsporigin::cannedTone();
        media.hasAudio = audio == "pcmu";
        allowManyDescriptors();
        serve(port, threads, media);
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "rtsp_origin: %s\n", error.what());
        return 2;
    }
}
