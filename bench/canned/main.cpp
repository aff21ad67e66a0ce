#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "bench/canned/CannedServer.h"
#include "bench/canned/MediaRecording.h"

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

void blockEndingSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
}

}  // namespace

int main(int argc, char** argv)
{
    int port = 0;
    double seconds = 3;
    std::string from;
    bool connected = false;
    CLI::App app(
        "The least that serving RTSP can cost on this machine, to compare a server with: fixed answers, and "
        "the\n"
        "packets that another server sent, in its sizes and at its pace, to whoever plays: over UDP "
        "segmented by\n"
        "the kernel, over TCP one write a frame. No checks, no RTCP, no timeouts. Prints its URL when it "
        "listens.");
    app.add_option("--from", from,
                   "rtsp://127.0.0.1:<port>/<path>, whose first video track is recorded and sent")
        ->required();
    app.add_option("--seconds", seconds, "how much to record, at least; sent again and again")
        ->check(CLI::Range(0.1, 60.0))
        ->capture_default_str();
    app.add_option("--port", port, "0: any")->check(CLI::Range(0, 65535))->capture_default_str();
    app.add_flag("--connected", connected, "a connected UDP socket for each viewer instead of one for all");
    CLI11_PARSE(app, argc, argv);
    try
    {
        allowManyDescriptors();
        blockEndingSignals();
        rtspcanned::CannedServer server(port, rtspcanned::recordFrom(rtspload::RtspUrl::parse(from), seconds),
                                        connected);
        std::printf("%s\n", server.url().c_str());
        std::fflush(stdout);
        server.run();
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "rtsp_canned: %s\n", error.what());
        return 2;
    }
}
