#include "bench/load/HoldRun.h"

#include <algorithm>
#include <utility>

#include "bench/load/ProcessMeter.h"

namespace rtspload
{
namespace
{

/// Faults that differ only in their numbers are counted as one.
std::string withoutNumbers(const std::string& text)
{
    std::string kind;
    for (const char c : text)
    {
        const bool digit = c >= '0' && c <= '9';
        if (!digit || kind.empty() || kind.back() != '#')
        {
            kind += digit ? '#' : c;
        }
    }
    return kind;
}

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t keepAliveInterval = 20 * second;
constexpr std::int64_t openLimit = 60 * second;
constexpr std::int64_t endLimit = 20 * second;
constexpr std::size_t openedAtATime = 32;
/// A sender report is due within this time of a viewer's start (RFC 3550 section 6.2: five seconds, and up to
/// half as much again).
constexpr double senderReportSeconds = 7.5;

/// Kind of fault → an example, and how many viewers have it.
using FaultCounts = std::map<std::string, std::pair<std::string, int>>;

}  // namespace

HoldRun::HoldRun(const LoadOptions& options) : options_(options)
{
    SessionListener& listener = *this;
    for (int i = 0; i < options.viewers; ++i)
    {
        const bool tcp = options.transport == "tcp" || (options.transport == "both" && i % 2 != 0);
        const RtspUrl& url = options.urls.empty()
                                 ? options.url
                                 : options.urls[static_cast<std::size_t>(i) % options.urls.size()];
        sessions_.push_back(std::make_unique<ClientSession>(
            poller_, url, tcp ? Transport::tcp : Transport::udp, options.allTracks, true, options.tls,
            srtpOf(options, i), listener));
    }
}

bool HoldRun::run(Report& report)
{
    const auto use = [this]
    { return options_.serverProcess != 0 ? ProcessUse::of(options_.serverProcess) : ProcessUse(); };
    const bool baseline = options_.baselineSeconds > 0;
    double onePercent = 0;
    ProcessUse one;
    if (baseline)
    {
        openUpTo(1);
        receiveFor(1);
        const ProcessUse before = use();
        receiveFor(options_.baselineSeconds);
        one = use();
        onePercent = corePercent(before, one);
    }
    const std::int64_t openBegin = nowNs();
    openUpTo(sessions_.size());
    const double openSeconds = static_cast<double>(nowNs() - openBegin) / 1e9;
    // What was cached of the GOP has been sent by then, so that only the steady state is measured.
    receiveFor(1);
    const ProcessUse before = use();
    const std::uint64_t packetsBefore = packetsOfAll();
    const std::int64_t measuredFrom = nowNs();
    for (const auto& session : sessions_)
    {
        session->silence().restart(measuredFrom);
    }
    receiveFor(options_.seconds);
    const ProcessUse after = use();
    const std::int64_t measuredUntil = nowNs();
    const std::uint64_t packetsMeasured = packetsOfAll() - packetsBefore;

    const bool reportDue = options_.seconds + 1 >= senderReportSeconds;
    std::uint64_t packets = 0;
    std::uint64_t lost = 0;
    std::uint64_t reordered = 0;
    FaultCounts faults;
    std::size_t faulty = 0;
    Latencies silence;  // the longest of each viewer
    for (const auto& session : sessions_)
    {
        if (!session->playing())
        {
            continue;
        }
        silence.add(session->silence().longest(measuredUntil));
        std::string text;
        for (const TrackWatch& track : session->tracks())
        {
            if (options_.pace)
            {
                track.pace().addTo(late_);
            }
            packets += track.packets();
            lost += track.lost();
            reordered += track.outOfOrder();
            text = text.empty() ? track.faults(reportDue && session->readsReports()) : text;
        }
        if (!text.empty())
        {
            ++faulty;
            text.insert(0, session->transport() == Transport::tcp ? "TCP: " : "UDP: ");
            ++faults.emplace(withoutNumbers(text), std::make_pair(text, 0)).first->second.second;
        }
    }
    endAll();

    report.add("mode", "hold");
    report.add("transport", options_.transport);
    report.add("viewers", static_cast<std::int64_t>(sessions_.size()));
    report.add("played", static_cast<std::int64_t>(playing_));
    report.add("failed", static_cast<std::int64_t>(failed_));
    report.add("with_faults", static_cast<std::int64_t>(faulty));
    report.add("packets", static_cast<std::int64_t>(packets));
    report.add("packets_lost", static_cast<std::int64_t>(lost));
    report.add("packets_out_of_order", static_cast<std::int64_t>(reordered));
    if (playing_ > 0)
    {
        report.add("packets_per_viewer_second",
                   static_cast<double>(packetsMeasured) / options_.seconds / static_cast<double>(playing_),
                   1);
    }
    report.add("silence", silence);
    report.add("longest_silence_ms", silence.percentile(100), 3);
    report.add("open_seconds", openSeconds, 2);
    report.add("play_to_first_packet", firstPacket_);
    report.add("play_to_key_frame", keyFrame_);
    report.add("frame_late", late_);
    if (!late_.empty())
    {
        report.add("frame_late_max_ms", late_.percentile(100), 3);
    }
    if (options_.serverProcess != 0)
    {
        report.add("server_core_percent", corePercent(before, after), 2);
        report.add("server_threads", std::int64_t{after.threads});
        report.add("server_resident_kb", after.residentBytes / 1024);
        if (baseline && playing_ > 1)
        {
            const auto more = static_cast<double>(playing_ - 1);
            report.add("one_viewer_core_percent", onePercent, 2);
            report.add("core_percent_per_viewer", (corePercent(before, after) - onePercent) / more, 4);
            report.add("server_us_per_packet",
                       (after.cpuSeconds - before.cpuSeconds - onePercent / 100 * options_.seconds) * 1e6 /
                           static_cast<double>(packetsMeasured) * static_cast<double>(playing_) / more,
                       2);
            report.add("resident_kb_per_session",
                       static_cast<double>(after.residentBytes - one.residentBytes) / 1024 / more, 2);
        }
    }
    for (const auto& [why, count] : reasons_)
    {
        report.add("fault", std::to_string(count) + " times " + why);
    }
    for (const auto& [kind, fault] : faults)
    {
        report.add("fault", std::to_string(fault.second) + " times such as " + fault.first);
    }
    const bool allEnded = ended_ == playing_;
    if (!allEnded)
    {
        report.add("fault", std::to_string(playing_ - ended_) + " viewers without an answer to TEARDOWN");
    }
    return failed_ == 0 && faulty == 0 && playing_ == sessions_.size() && allEnded;
}

void HoldRun::openUpTo(std::size_t count)
{
    const std::int64_t end = nowNs() + openLimit;
    while (settled() < count && nowNs() < end)
    {
        while (opened_ < count && opened_ - settled() < openedAtATime)
        {
            ClientSession& session = *sessions_[opened_++];
            session.start();
        }
        poller_.wait(100);
    }
}

void HoldRun::receiveFor(double seconds)
{
    const std::int64_t end = nowNs() + static_cast<std::int64_t>(seconds * 1e9);
    for (std::int64_t now = nowNs(); now < end; now = nowNs())
    {
        if (nextKeepAliveNs_ == 0)
        {
            nextKeepAliveNs_ = now + keepAliveInterval;
        }
        if (now >= nextKeepAliveNs_)
        {
            nextKeepAliveNs_ = now + keepAliveInterval;
            for (const auto& session : sessions_)
            {
                if (session->playing())
                {
                    session->keepAlive();
                }
            }
        }
        poller_.wait(static_cast<int>(std::min<std::int64_t>(100, (end - now) / 1'000'000 + 1)));
    }
}

std::uint64_t HoldRun::packetsOfAll() const
{
    std::uint64_t packets = 0;
    for (const auto& session : sessions_)
    {
        packets += session->packets();
    }
    return packets;
}

void HoldRun::endAll()
{
    const std::int64_t end = nowNs() + endLimit;
    for (const auto& session : sessions_)
    {
        if (session->playing())
        {
            session->teardown();
            poller_.wait(0);
        }
    }
    while (ended_ < playing_ && nowNs() < end)
    {
        poller_.wait(100);
    }
}

void HoldRun::onPlaying(ClientSession&)
{
    ++playing_;
}

void HoldRun::onPacket(ClientSession& session, FrameStart frame)
{
    if (session.packets() == 1)
    {
        firstPacket_.add(nowNs() - session.playSentNs());
    }
    if (frame == FrameStart::keyFrame && !keyFrameSeen_[&session])
    {
        keyFrameSeen_[&session] = true;
        keyFrame_.add(nowNs() - session.playSentNs());
    }
}

void HoldRun::onEnded(ClientSession&)
{
    ++ended_;
}

void HoldRun::onFailed(ClientSession& session, const std::string& why)
{
    (void)session;
    ++failed_;
    ++reasons_[why];
}

}  // namespace rtspload
