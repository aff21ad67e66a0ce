#include "refhost/capture/CameraStream.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/base/Times.h"
#include "refhost/capture/PipelineRunner.h"
#include "refhost/media/TrackDescription.h"

namespace refhost
{
namespace
{

bool sameTracks(const std::vector<SubMediaInfo>& left, const std::vector<SubMediaInfo>& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), sameDescription);
}

/// How often is looked for frames: often enough to notice in time that they stopped.
std::chrono::milliseconds pauseOfFrames(const CameraStream::Options& options)
{
    constexpr std::chrono::milliseconds longest(500);
    return std::clamp(options.frozenAfter / 5, std::chrono::milliseconds(1), longest);
}

}  // namespace

CameraStream::CameraStream(const StreamConfig& config, const std::string& title, const Options& options,
                           std::shared_ptr<TaskQueue> queue, std::function<void()> changed)
    : options_(options),
      changed_(std::move(changed)),
      queue_(std::move(queue)),
      setting_{config, title, options.linger, options.serverClock, options.endsWhenAway},
      attempts_(options_.restartPauses),
      condition_(*options_.states, {options_.cameraId, config.id}, title)
{
}

CameraStream::~CameraStream()
{
    close();
    awaitEnd(Clock::now() + options_.endDeadline);
}

void CameraStream::close()
{
    {
        const MutexLock guard(life_->mutex);
        life_->alive = false;
    }
    for (const auto* runner : {&pipeline_, &ending_})
    {
        if (*runner)
        {
            (*runner)->mute();
            (*runner)->stop();
        }
    }
}

void CameraStream::awaitEnd(Clock::time_point deadline)
{
    for (auto* runner : {&pipeline_, &ending_})
    {
        if (*runner && !(*runner)->awaitEnd(deadline))
        {
            Log::warning("{}: the source does not end, it is abandoned", setting_.title);
        }
        runner->reset();
    }
}

void CameraStream::post(TaskQueue::Task task, std::chrono::milliseconds delay)
{
    const auto unlessClosed = [life = life_, task = std::move(task)]
    {
        const MutexLock guard(life->mutex);
        if (life->alive)
        {
            task();
        }
    };
    queue_->post(unlessClosed, delay);
}

/// At most one update is queued, however often viewers come and go while the stream's thread is busy.
void CameraStream::postUpdate()
{
    if (updatePosted_.exchange(true))
    {
        return;
    }
    post(
        [this]
        {
            updatePosted_ = false;
            if (startsAtOnce_.exchange(false))
            {
                restartScheduled_ = false;
            }
            update();
        });
}

void CameraStream::change(const Setting& setting, bool restarts)
{
    if (restarts)
    {
        forgetTracks();
    }
    const auto apply = [this, setting, restarts]
    {
        setting_ = setting;
        condition_.rename(setting.title);
        if (!setting.endsWhenAway)
        {
            const MutexLock guard(mutex_);
            away_ = false;
        }
        if (restarts)
        {
            startOver();
        }
    };
    post(apply);
}

/// Descriptions wait for the new ones from now on.
void CameraStream::forgetTracks()
{
    const MutexLock guard(mutex_);
    tracks_.reset();
    failed_ = false;
    away_ = false;
}

void CameraStream::startOver()
{
    // The former source may have described its own meanwhile.
    forgetTracks();
    attempts_.reset();
    restartScheduled_ = false;
    clockReported_ = false;
    if (pipeline_)
    {
        Log::info("{}: starting again with another configuration", setting_.title);
        stop();
    }
    update();
}

std::size_t CameraStream::waitingTasks() const
{
    return queue_->size();
}

StreamSource::Description CameraStream::describe(std::vector<SubMediaInfo>& tracks)
{
    const MutexLock guard(mutex_);
    if (const std::shared_ptr<const Tracks> known = tracks_)
    {
        tracks = *known;
        return Description::ready;
    }
    if (failed_ && Clock::now() - failedAt_ < options_.failureHold)
    {
        return Description::failed;
    }
    failed_ = false;
    if (!describing_)
    {
        describing_ = true;
        const std::uint64_t request = ++descriptionRequest_;
        postUpdate();
        post([this, request] { onDeadline(request); }, options_.describeDeadline);
    }
    return Description::starting;
}

void CameraStream::attach(const std::string& trackId, int payloadSize, std::shared_ptr<AccessUnitSink> sink)
{
    if (taps_.add(trackId, payloadSize, std::move(sink)))
    {
        postUpdate();
    }
}

void CameraStream::detach(const AccessUnitSink* sink)
{
    if (taps_.remove(sink))
    {
        postUpdate();
    }
}

void CameraStream::attachMedia(std::shared_ptr<EncodedUnitSink> sink)
{
    mediaTap_->add(std::move(sink));
}

void CameraStream::detachMedia(const EncodedUnitSink* sink)
{
    mediaTap_->remove(sink);
}

void CameraStream::acquire()
{
    const MutexLock guard(mutex_);
    if (viewers_++ > 0)
    {
        return;
    }
    // The first viewer does not wait for the restart pause that earlier viewers caused.
    startsAtOnce_ = true;
    postUpdate();
}

void CameraStream::release()
{
    const MutexLock guard(mutex_);
    if (viewers_ > 0 && --viewers_ == 0)
    {
        postUpdate();
    }
}

void CameraStream::requestKeyFrame()
{
    const MutexLock guard(mutex_);
    if (keyFrameRequested_)
    {
        return;
    }
    keyFrameRequested_ = true;
    const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(
        keyFrameAt_ + options_.keyFrameInterval - Clock::now());
    post([this] { sendKeyFrameRequest(); }, std::max(pause, std::chrono::milliseconds(0)));
}

int CameraStream::starts() const
{
    const MutexLock guard(mutex_);
    return starts_;
}

bool CameraStream::isRunning() const
{
    const MutexLock guard(mutex_);
    return running_;
}

bool CameraStream::isAway() const
{
    const MutexLock guard(mutex_);
    return away_;
}

bool CameraStream::isNeeded() const
{
    const MutexLock guard(mutex_);
    return viewers_ > 0;
}

StreamSource::Received CameraStream::received() const
{
    const SourceCounts& counts = mediaTap_->counts();
    return {packetCount_.load(std::memory_order_relaxed), counts.bytes(), counts.keyFrames(),
            counts.keyFrameInterval()};
}

void CameraStream::restart()
{
    startsAtOnce_ = true;
    post([this] { restartNow(); });
}

void CameraStream::restartNow()
{
    if (pipeline_)
    {
        Log::info("{}: starting again, as requested", setting_.title);
        condition_.onUnneeded();
        stop();
    }
    postUpdate();
}

void CameraStream::update()
{
    bool needed = false;
    bool describing = false;
    {
        const MutexLock guard(mutex_);
        describing = describing_;
        needed = viewers_ > 0 || describing_;
    }
    if (!needed)
    {
        if (pipeline_)
        {
            setTaps();
            scheduleStop();
        }
        return;
    }
    stopScheduled_ = false;
    ++requests_;
    if (pipeline_)
    {
        setTaps();
    }
    // Until the previous run has ended, its device may be busy.
    else if (!ending_ && !waitsToStartAgain_ && (describing || !restartScheduled_))
    {
        start();
    }
}

void CameraStream::start()
{
    ++run_;
    restartScheduled_ = false;
    attempts_.onStart(Clock::now());
    condition_.onStart();
    described_ = false;
    packetsSeen_ = 0;
    if (PipelineRunner::abandoned(setting_.title) >= options_.maxAbandoned)
    {
        fail("too many of its sources hang; waiting until one of them ends");
        return;
    }
    {
        const MutexLock guard(mutex_);
        ++starts_;
        running_ = true;
    }
    try
    {
        startPipeline();
    }
    catch (const std::system_error& error)
    {
        fail(fmt::format("the source cannot be started: {}", error.what()));
    }
}

void CameraStream::startPipeline()
{
    const std::uint64_t run = run_;
    SourceRun::Events events;
    events.described = [this, run] { post([this, run] { onDescribed(run, false); }); };
    events.ended = [this, run](const SourceFailure& why) { post([this, run, why] { onEnded(run, why); }); };
    events.otherMeans = [this](const std::string& why)
    { post([this, why] { condition_.onOtherMeans(why); }); };
    events.clockUnusable = [this](const std::string& why) { post([this, why] { onClockUnusable(why); }); };
    events.stopped = [this, run] { post([this, run] { onStopped(run); }); };
    SourceRun::Setup setup{setting_.config, setting_.title,    attempts_.means(),   mediaTap_,
                           taps_.inUse(),   std::move(events), setting_.serverClock};
    pipeline_ = options_.makeRun ? options_.makeRun(std::move(setup))
                                 : std::make_unique<PipelineRunner>(std::move(setup));
    post([this, run] { checkForSilence(run, 0); }, options_.maxSilence);
    post([this, run] { checkForFrames(run); }, pauseOfFrames(options_));
}

void CameraStream::setTaps()
{
    pipeline_->setTaps(taps_.inUse());
    post([this, run = run_] { checkForHang(run); }, options_.endDeadline);
}

void CameraStream::stop()
{
    endingRun_ = run_++;
    {
        const MutexLock guard(mutex_);
        running_ = false;
    }
    if (!pipeline_)
    {
        finishStop();
        return;
    }
    ending_ = std::move(pipeline_);
    ending_->stop();
    post([this, run = endingRun_] { onEndDeadline(run); }, options_.endDeadline);
}

void CameraStream::onStopped(std::uint64_t run)
{
    if (ending_ && run == endingRun_)
    {
        ending_.reset();
        finishStop();
        update();
    }
}

void CameraStream::onEndDeadline(std::uint64_t run)
{
    if (!ending_ || run != endingRun_)
    {
        return;
    }
    const bool ended = ending_->awaitEnd(Clock::now());
    ending_.reset();
    if (!ended)
    {
        Log::warning("{}: the source does not end, it is abandoned; {} of this stream hang now",
                     setting_.title, PipelineRunner::abandoned(setting_.title));
    }
    finishStop();
    update();
}

void CameraStream::finishStop()
{
    for (const auto& [key, tap] : taps_.inUse())
    {
        tap->discontinuity();
    }
    mediaTap_->discontinuity();
}

void CameraStream::checkForHang(std::uint64_t run)
{
    if (run == run_ && pipeline_ && pipeline_->busyFor() >= options_.endDeadline)
    {
        fail("the source hangs");
    }
}

void CameraStream::onClockUnusable(const std::string& why)
{
    if (!clockReported_)
    {
        clockReported_ = true;
        Log::warning("{}: {}: media are dated by their arrival", setting_.title, why);
    }
}

void CameraStream::onDescribed(std::uint64_t run, bool partial)
{
    auto tracks = std::make_shared<Tracks>();
    if (run != run_ || !pipeline_ || !pipeline_->describe(partial, *tracks))
    {
        return;
    }
    bool changed = false;
    {
        const MutexLock guard(mutex_);
        changed = !tracks_ || !sameTracks(*tracks_, *tracks);
        if (changed)
        {
            tracks_ = tracks;
        }
        describing_ = false;
        failed_ = false;
        away_ = false;
    }
    attempts_.onDescribed();
    described_ = true;
    if (changed)
    {
        for (const SubMediaInfo& track : *tracks)
        {
            Log::debug("{}: {} is {} {}", setting_.title, track.trackId, track.encodingName,
                       track.formatParameters);
        }
        changed_();
    }
    update();
}

void CameraStream::onDeadline(std::uint64_t request)
{
    const auto isPending = [this, request]
    {
        const MutexLock guard(mutex_);
        return describing_ && request == descriptionRequest_;
    };
    if (!isPending())
    {
        return;
    }
    // Some tracks are better than none: an audio track may stay silent forever.
    onDescribed(run_, true);
    if (isPending())
    {
        // The description's deadline allows no further attempt by other means.
        attempts_.giveUp();
        fail("the source gave nothing that can be sent in time");
    }
}

void CameraStream::checkForSilence(std::uint64_t run, std::uint64_t packetsBefore)
{
    if (run != run_ || !pipeline_)
    {
        return;
    }
    const std::uint64_t packets = pipeline_->packetCount();
    if (packets == packetsBefore)
    {
        fail({fmt::format("no frames for {:.3g} s", secondsOf(options_.maxSilence)),
              SourceFailure::Cause::silent});
        return;
    }
    post([this, run, packets] { checkForSilence(run, packets); }, options_.maxSilence);
}

void CameraStream::checkForFrames(std::uint64_t run)
{
    if (run != run_ || !pipeline_)
    {
        return;
    }
    const Clock::time_point now = Clock::now();
    const std::uint64_t packets = pipeline_->packetCount();
    if (packets != packetsSeen_)
    {
        packetCount_.fetch_add(packets > packetsSeen_ ? packets - packetsSeen_ : 0,
                               std::memory_order_relaxed);
        packetsSeen_ = packets;
        packetsAt_ = now;
        if (described_)
        {
            condition_.onFrames();
            comeBack(run);
        }
    }
    else if (condition_.state() == CameraState::running && now - packetsAt_ >= options_.frozenAfter)
    {
        condition_.onSilence(now - packetsAt_);
        goAway();
    }
    post([this, run] { checkForFrames(run); }, pauseOfFrames(options_));
}

void CameraStream::onEnded(std::uint64_t run, const SourceFailure& why)
{
    if (run == run_ && pipeline_)
    {
        fail(why);
    }
}

void CameraStream::fail(const SourceFailure& why)
{
    const bool otherMeans = pipeline_ && pipeline_->mayWorkByAnotherTransport();
    const SourceAttempts::Next next = attempts_.onFailure(otherMeans, Clock::now());
    if (next != SourceAttempts::Next::failed)
    {
        condition_.onOtherMeans(why);
        if (next == SourceAttempts::Next::again)
        {
            startAgain();
        }
        // What follows starts when this run has ended.
        stop();
        return;
    }
    condition_.onFailure(why);
    goAway();
    stop();
    bool notify = false;
    bool viewers = false;
    {
        const MutexLock guard(mutex_);
        viewers = viewers_ > 0;
        if (!tracks_)
        {
            notify = true;
            describing_ = false;
            failed_ = true;
            failedAt_ = Clock::now();
        }
    }
    if (viewers)
    {
        scheduleRestart();
    }
    if (notify)
    {
        changed_();
    }
}

/// Ends viewers, where they do not wait; whoever comes from now on waits for a new description.
void CameraStream::goAway()
{
    const MutexLock guard(mutex_);
    if (setting_.endsWhenAway && tracks_)
    {
        tracks_.reset();
        away_ = true;
    }
}

/// A run that was frozen and goes on is not described again by itself.
void CameraStream::comeBack(std::uint64_t run)
{
    if (isAway())
    {
        onDescribed(run, false);
    }
}

void CameraStream::scheduleStop()
{
    if (stopScheduled_)
    {
        return;
    }
    stopScheduled_ = true;
    const std::uint64_t since = requests_;
    const auto stopUnlessNeeded = [this, since]
    {
        if (stopScheduled_ && since == requests_ && pipeline_)
        {
            stopScheduled_ = false;
            Log::info("{}: stopping, nobody watches", setting_.title);
            condition_.onUnneeded();
            stop();
        }
    };
    post(stopUnlessNeeded, setting_.linger);
}

void CameraStream::startAgain()
{
    waitsToStartAgain_ = true;
    const auto start = [this]
    {
        waitsToStartAgain_ = false;
        update();
    };
    post(start, attempts_.againPause());
}

void CameraStream::scheduleRestart()
{
    restartScheduled_ = true;
    const std::uint64_t run = run_;
    const auto restart = [this, run]
    {
        if (run == run_ && restartScheduled_)
        {
            restartScheduled_ = false;
            update();
        }
    };
    post(restart, attempts_.restartPause());
}

void CameraStream::sendKeyFrameRequest()
{
    {
        const MutexLock guard(mutex_);
        keyFrameRequested_ = false;
        keyFrameAt_ = Clock::now();
    }
    if (pipeline_)
    {
        pipeline_->requestKeyFrame();
    }
}

}  // namespace refhost
