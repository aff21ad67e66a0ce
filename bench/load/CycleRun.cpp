#include "bench/load/CycleRun.h"

#include <algorithm>

#include "bench/load/ProcessMeter.h"

namespace rtspload
{
namespace
{

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t endGrace = 20 * second;
constexpr std::int64_t warmUp = 10 * second;

}  // namespace

CycleRun::CycleRun(const LoadOptions& options) : options_(options)
{
    SessionListener& listener = *this;
    for (int i = 0; i < options.clients + (options.keepWarm ? 1 : 0); ++i)
    {
        const bool tcp = options.transport == "tcp" || (options.transport == "both" && i % 2 != 0);
        sessions_.push_back(std::make_unique<ClientSession>(
            poller_, options.url, tcp ? Transport::tcp : Transport::udp, options.allTracks, false,
            options.tls, srtpOf(options, i), listener));
    }
}

bool CycleRun::run(Report& report)
{
    std::size_t first = 0;
    if (options_.keepWarm)
    {
        warm_ = sessions_[0].get();
        sessions_[0]->start();
        for (const std::int64_t end = nowNs() + warmUp; sessions_[0]->packets() == 0 && nowNs() < end;)
        {
            poller_.wait(100);
        }
        first = 1;
    }

    const ProcessUse before =
        options_.serverProcess != 0 ? ProcessUse::of(options_.serverProcess) : ProcessUse();
    const std::int64_t startNs = nowNs();
    for (std::size_t i = first; i < sessions_.size(); ++i)
    {
        ++active_;
        startCycle(*sessions_[i]);
    }
    const auto span = static_cast<std::int64_t>(options_.seconds * 1e9);
    while (nowNs() < startNs + span && active_ > 0 && !enough())
    {
        poller_.wait(100);
    }
    const double seconds = static_cast<double>(nowNs() - startNs) / 1e9;
    const std::int64_t completed = completed_;
    const ProcessUse after =
        options_.serverProcess != 0 ? ProcessUse::of(options_.serverProcess) : ProcessUse();
    ending_ = true;
    if (options_.keepWarm && sessions_[0]->playing())
    {
        ++active_;
        sessions_[0]->teardown();
    }
    for (const std::int64_t end = nowNs() + endGrace; active_ > 0 && nowNs() < end;)
    {
        poller_.wait(100);
    }

    report.add("mode", "cycles");
    report.add("transport", options_.transport);
    report.add("clients", std::int64_t{options_.clients});
    report.add("cycles", completed);
    report.add("cycles_per_second", static_cast<double>(completed) / seconds, 1);
    report.add("failed", failed_);
    report.add("unfinished", static_cast<std::int64_t>(active_));
    report.add("play_to_first_packet", firstPacket_);
    report.add("play_to_key_frame", keyFrame_);
    if (options_.serverProcess != 0)
    {
        report.add("server_core_percent", corePercent(before, after), 1);
        report.add("server_us_per_cycle",
                   (after.cpuSeconds - before.cpuSeconds) * 1e6 /
                       static_cast<double>(std::max<std::int64_t>(completed, 1)),
                   1);
        report.add("server_threads", std::int64_t{after.threads});
        report.add("server_resident_growth_kb", (after.residentBytes - before.residentBytes) / 1024);
    }
    for (const auto& [why, count] : reasons_)
    {
        report.add("failure", std::to_string(count) + " times " + why);
    }
    return failed_ == 0 && active_ == 0 && completed > 0;
}

bool CycleRun::enough() const
{
    return options_.cycles > 0 && completed_ >= options_.cycles;
}

void CycleRun::startCycle(ClientSession& session)
{
    cycles_[&session] = Cycle();
    session.start();
}

void CycleRun::onPlaying(ClientSession& session)
{
    if (&session != warm_ && cycles_[&session].done)
    {
        session.teardown();
    }
}

void CycleRun::onPacket(ClientSession& session, FrameStart frame)
{
    if (&session == warm_)
    {
        return;
    }
    Cycle& cycle = cycles_[&session];
    if (cycle.done)
    {
        return;
    }
    const std::int64_t passed = nowNs() - session.playSentNs();
    if (!cycle.firstPacketSeen)
    {
        cycle.firstPacketSeen = true;
        firstPacket_.add(passed);
    }
    if (frame == FrameStart::keyFrame)
    {
        keyFrame_.add(passed);
    }
    cycle.done = !options_.untilKeyFrame || frame == FrameStart::keyFrame;
    if (cycle.done && session.playing())
    {
        session.teardown();
    }
}

void CycleRun::onEnded(ClientSession& session)
{
    completed_ += &session != warm_ ? 1 : 0;
    if (ending_)
    {
        --active_;
        return;
    }
    startCycle(session);
}

void CycleRun::onFailed(ClientSession& session, const std::string& why)
{
    ++failed_;
    ++reasons_[why];
    if (&session != warm_)
    {
        --active_;
    }
}

}  // namespace rtspload
