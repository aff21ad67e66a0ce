#include "refhost/doctor/SourceCheck.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Log.h"
#include "refhost/base/Mutex.h"
#include "refhost/capture/SourceRun.h"

namespace refhost
{
namespace
{

using Clock = std::chrono::steady_clock;

/// What a run reports, shared with its threads.
struct Reports
{
    Mutex mutex;
    ConditionVariable changed;
    bool described OV_GUARDED_BY(mutex) = false;
    bool ended OV_GUARDED_BY(mutex) = false;
    std::string why OV_GUARDED_BY(mutex);
};

bool holds(const std::string& text, std::initializer_list<std::string_view> words)
{
    for (const std::string_view word : words)
    {
        if (text.find(word) != std::string::npos)
        {
            return true;
        }
    }
    return false;
}

std::string mendFor(const SourceConfig& source, const std::string& why)
{
    if (source.kind == SourceConfig::Kind::launch)
    {
        return "Try the line with gst-launch-1.0; \"apt-cache search gstreamer1.0\" lists packages of "
               "elements";
    }
    if (!source.isCamera())
    {
        return source.kind == SourceConfig::Kind::v4l2
                   ? "See that no other program uses the device, and what it offers: v4l2-ctl --list-formats"
                   : "Try it with ffprobe, and name another file in location";
    }
    if (holds(why, {"401", "403", "password", "login", "credential", "Unauthorized", "Forbidden"}))
    {
        return "Correct user and password in location, with @ : / ? # percent-encoded";
    }
    if (holds(why, {"404", "Not Found"}))
    {
        return "Correct the path in location: the camera's manual or its ONVIF interface names it";
    }
    if (holds(why, {"cannot find", "name resolution", "Name or service"}))
    {
        return "Correct the host in location, or name its address";
    }
    if (holds(why, {"certificate", "TLS"}))
    {
        return "Correct tls-verify or tls-fingerprint of the stream";
    }
    return "See that the camera is on and that host and port in location are right: ping it, and see what a "
           "firewall lets pass";
}

}  // namespace

SourceCheck::SourceCheck(const StreamConfig& stream, std::string title, std::shared_ptr<IngestLoops> loops)
    : stream_(stream), title_(std::move(title)), loops_(std::move(loops))
{
}

std::string SourceCheck::subject() const
{
    return title_;
}

SourceCheck::Outcome SourceCheck::attempt(unsigned number, Clock::time_point deadline)
{
    const auto reports = std::make_shared<Reports>();
    SourceRun::Setup setup;
    setup.config = stream_;
    setup.title = title_;
    setup.attempt = number;
    setup.mediaTap = std::make_shared<MediaTap>();
    setup.events.described = [reports]
    {
        const MutexLock guard(reports->mutex);
        reports->described = true;
        reports->changed.notifyAll();
    };
    setup.events.ended = [reports](const SourceFailure& failure)
    {
        const MutexLock guard(reports->mutex);
        reports->ended = true;
        reports->why = reports->why.empty() ? failure.text : reports->why;
        reports->changed.notifyAll();
    };
    setup.events.clockUnusable = [](const std::string&) {};
    setup.events.stopped = [] {};
    const std::unique_ptr<SourceRun> run = loops_->start(std::move(setup));

    Outcome outcome;
    std::vector<SubMediaInfo> tracks;
    bool ended = false;
    while (!outcome.described && !ended && Clock::now() < deadline)
    {
        {
            const MutexLock guard(reports->mutex);
            while (!reports->described && !reports->ended &&
                   reports->changed.waitUntil(reports->mutex, deadline))
            {
            }
            reports->described = false;
            ended = reports->ended;
            outcome.why = reports->why;
        }
        outcome.described = run->describe(ended || Clock::now() >= deadline, tracks);
    }
    outcome.otherTransport = run->mayWorkByAnotherTransport();
    run->stop();
    run->awaitEnd(Clock::now() + std::chrono::seconds(2));
    run->mute();
    return outcome;
}

std::vector<Finding> SourceCheck::run()
{
    const auto deadline = Clock::now() + maxTime;
    Outcome outcome;
    for (unsigned number = 0; number < 3 && Clock::now() < deadline; ++number)
    {
        outcome = attempt(number, deadline);
        if (outcome.described)
        {
            return {Finding::good("its media can be read")};
        }
        if (!outcome.otherTransport)
        {
            break;
        }
    }
    const std::string why =
        outcome.why.empty() ? fmt::format("no answer within {} s", maxTime.count()) : outcome.why;
    return {Finding::failure(Log::safe(why), mendFor(stream_.source, why))};
}

}  // namespace refhost
