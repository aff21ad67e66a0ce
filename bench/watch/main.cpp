#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "bench/load/Poller.h"
#include "bench/load/ProcessMeter.h"
#include "bench/watch/HlsReader.h"
#include "bench/watch/LiveViewer.h"

namespace
{

using rtspload::nowNs;
using rtspload::ProcessUse;

struct Options
{
    watchload::Place place;
    std::string mode = "live";
    std::string stream = "1/0";
    std::string query;
    int viewers = 100;
    double seconds = 10;
    double settle = 3;
    int server = 0;
};

double quantile(std::vector<double>& sorted, double part)
{
    return sorted.empty() ? -1
                          : sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

void run(rtspload::Poller& poller, double seconds)
{
    const std::int64_t end = nowNs() + static_cast<std::int64_t>(seconds * 1e9);
    while (nowNs() < end)
    {
        poller.wait(20);
    }
}

/// Prints what was measured as one JSON object.
int measure(const Options& options)
{
    const std::string folder = "/api/v1/cameras/" + options.stream.substr(0, options.stream.find('/')) +
                               "/streams/" + options.stream.substr(options.stream.find('/') + 1) + "/";
    rtspload::Poller poller;
    watchload::LiveCount live;
    watchload::HlsCount hls;
    std::vector<std::unique_ptr<watchload::LiveViewer>> viewers;
    std::vector<std::unique_ptr<watchload::HlsReader>> readers;
    for (int i = 0; i < options.viewers; ++i)
    {
        if (options.mode == "live")
        {
            viewers.push_back(std::make_unique<watchload::LiveViewer>(options.place, poller,
                                                                      folder + "live" + options.query, live));
        }
        else
        {
            readers.push_back(
                std::make_unique<watchload::HlsReader>(options.place, poller, folder + "hls/", hls));
        }
        run(poller, 0.002);
    }
    run(poller, options.settle);
    live = watchload::LiveCount{0, 0, live.ended};
    hls = watchload::HlsCount();
    const ProcessUse before = options.server > 0 ? ProcessUse::of(options.server) : ProcessUse();
    const std::int64_t start = nowNs();
    run(poller, options.seconds);
    const double seconds = static_cast<double>(nowNs() - start) / 1e9;
    const ProcessUse after = options.server > 0 ? ProcessUse::of(options.server) : ProcessUse();
    std::sort(hls.latencies.begin(), hls.latencies.end());
    const double count = options.viewers;
    std::printf(
        "{\"viewers\":%d,\"seconds\":%.2f,\"messages_per_viewer_second\":%.2f,\"ended\":%d,"
        "\"parts_per_reader_second\":%.2f,\"playlists_per_reader_second\":%.2f,\"failures\":%llu,"
        "\"megabits_per_viewer\":%.3f,\"latency_median\":%.3f,\"latency_p95\":%.3f,\"latency_max\":%.3f,"
        "\"server_core_percent\":%.2f,\"server_resident_bytes\":%lld}\n",
        options.viewers, seconds, static_cast<double>(live.messages) / seconds / count, live.ended,
        static_cast<double>(hls.parts) / seconds / count,
        static_cast<double>(hls.playlists) / seconds / count, static_cast<unsigned long long>(hls.failures),
        8e-6 * static_cast<double>(live.bytes + hls.bytes) / seconds / count, quantile(hls.latencies, 0.5),
        quantile(hls.latencies, 0.95), quantile(hls.latencies, 1),
        options.server > 0 ? corePercent(before, after) : -1.0, static_cast<long long>(after.residentBytes));
    const bool good = options.mode == "live" ? live.ended == 0 && live.messages > 0 : hls.parts > 0;
    return good ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app(
        "Puts viewers on an HTTP server of this machine, as those of the page or of HLS, and measures what "
        "they get.\n"
        "Ends with 1 when the server ended viewers, or nothing came.");
    app.add_option("--mode", options.mode, "live: WebSocket viewers; hls: readers of low-latency HLS")
        ->check(CLI::IsMember({"live", "hls"}))
        ->capture_default_str();
    app.add_option("--port", options.place.port, "of the server on 127.0.0.1")->capture_default_str();
    app.add_option("--stream", options.stream, "camera and stream")->capture_default_str();
    app.add_option("--query", options.query, "live: such as ?audio=0");
    app.add_option("--viewers", options.viewers, "how many")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    app.add_option("--seconds", options.seconds, "how long to measure")->capture_default_str();
    app.add_option("--settle", options.settle, "seconds before that")->capture_default_str();
    app.add_option("--server-pid", options.server, "process whose processor time and memory to report");
    CLI11_PARSE(app, argc, argv);
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0)
    {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    try
    {
        return measure(options);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "watch_load: %s\n", error.what());
        return 2;
    }
}
