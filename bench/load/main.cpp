#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>

#include "bench/load/CycleRun.h"
#include "bench/load/HandshakeRun.h"
#include "bench/load/HoldRun.h"
#include "bench/load/LoadOptions.h"

namespace
{

/// A UDP viewer needs three descriptors for each track.
void allowManyDescriptors()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0)
    {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    rtspload::LoadOptions options;
    std::string url;
    std::string urlsFile;
    CLI::App app(
        "Puts load on an RTSP server of this machine and judges what it sends.\n"
        "Ends with 1 when a session failed or a viewer received something wrong.");
    app.add_option("--url", url, "rtsp://127.0.0.1:<port>/<path>; loopback addresses only");
    app.add_option("--urls", urlsFile,
                   "hold: a file with one such URL a line, for the sessions in turn, instead of --url")
        ->check(CLI::ExistingFile);
    app.add_option("--transport", options.transport, "udp, tcp, or both: every other session TCP")
        ->check(CLI::IsMember({"udp", "tcp", "both"}))
        ->capture_default_str();
    app.add_option("--mode", options.mode,
                   "cycles: whole sessions one after the other; hold: viewers that stay; handshakes: TLS "
                   "connections that send OPTIONS and end, from 2 threads")
        ->check(CLI::IsMember({"cycles", "hold", "handshakes"}))
        ->capture_default_str();
    app.add_option("--clients", options.clients, "cycles: sessions at a time")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    app.add_option(
           "--cycles", options.cycles,
           "cycles: end after so many sessions, also before the time is over; 0: at the end of the time")
        ->check(CLI::Range(0, 1'000'000));
    app.add_option("--viewers", options.viewers, "hold: how many viewers")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    app.add_option("--seconds", options.seconds, "how long to measure")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    app.add_option("--baseline-seconds", options.baselineSeconds,
                   "hold: measure one viewer first, and report what each further one costs")
        ->check(CLI::Range(0.0, 3600.0));
    app.add_flag("--until-key-frame", options.untilKeyFrame,
                 "cycles: tear down after the first key frame instead of the first packet");
    app.add_flag("--keep-warm", options.keepWarm,
                 "cycles: one more viewer keeps the server's source running");
    app.add_flag("--all-tracks", options.allTracks, "set up every track, not the first video track alone");
    app.add_option("--server-pid", options.serverProcess,
                   "process whose processor time and memory to report");
    app.add_flag("--tls", options.tls, "speak RTSP over TLS; the certificate is not verified");
    app.add_flag("--srtp", options.srtp,
                 "set up RTP/SAVP with the keys of the description (ask for it by the URL where the server "
                 "needs that); "
                 "every 16th session decrypts, the others check headers alone");
    app.add_flag("--resume", options.resume, "handshakes: resume one session instead of full handshakes");
    app.add_flag("--pace", options.pace,
                 "hold: report how late frames come, by their timestamps; for recordings");
    app.add_flag("--json", options.json, "print one JSON object");
    CLI11_PARSE(app, argc, argv);

    try
    {
        std::ifstream lines(urlsFile);
        for (std::string line; options.mode == "hold" && std::getline(lines, line);)
        {
            options.urls.push_back(rtspload::RtspUrl::parse(line));
        }
        options.url = options.urls.empty() ? rtspload::RtspUrl::parse(url) : options.urls.front();
        allowManyDescriptors();
        rtspload::Report report;
        const bool good = options.mode == "cycles"       ? rtspload::CycleRun(options).run(report)
                          : options.mode == "handshakes" ? rtspload::HandshakeRun(options).run(report)
                                                         : rtspload::HoldRun(options).run(report);
        options.json ? report.printJson() : report.printText();
        return good ? 0 : 1;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "rtsp_load: %s\n", error.what());
        return 2;
    }
}
