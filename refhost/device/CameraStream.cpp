#include "refhost/device/CameraStream.h"

#include <algorithm>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/description/TrackDescription.h"

namespace refhost
{
namespace
{

/// A run of this length was a good one: the next failure begins with the shortest pause again.
constexpr std::chrono::seconds goodRun(20);

bool sameTracks(const std::vector<SubMediaInfo>& left, const std::vector<SubMediaInfo>& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), sameDescription);
}

}  // namespace

CameraStream::CameraStream(const StreamConfig& config, const std::string& title, const Options& options,
                           std::function<void()> changed)
    : config_(config), title_(title), options_(options), changed_(std::move(changed))
{
}

CameraStream::~CameraStream()
{
    // First the thread that uses the pipeline, then the pipeline whose threads post to the queue.
    queue_.close();
    pipeline_.reset();
}

StreamSource::Description CameraStream::describe(std::vector<SubMediaInfo>& tracks)
{
    std::unique_lock<std::mutex> guard(mutex_);
    if (const std::shared_ptr<const Tracks> known = tracks_)
    {
        guard.unlock();
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
        const std::uint64_t wish = ++descriptionWish_;
        queue_.post([this] { update(); });
        queue_.post([this, wish] { onDeadline(wish); }, options_.describeDeadline);
    }
    return Description::starting;
}

void CameraStream::attach(const std::string& trackId, int payloadSize, std::shared_ptr<AccessUnitSink> sink)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::shared_ptr<PacketTap>& tap = taps_[{trackId, payloadSize}];
    if (!tap)
    {
        tap = std::make_shared<PacketTap>();
        queue_.post([this] { update(); });
    }
    tap->add(std::move(sink));
}

void CameraStream::detach(const AccessUnitSink* sink)
{
    std::vector<std::shared_ptr<PacketTap>> taps;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        for (const auto& [key, tap] : taps_)
        {
            taps.push_back(tap);
        }
    }
    // Without the lock: it waits for a delivery, and the sink may ask this stream something meanwhile.
    for (const std::shared_ptr<PacketTap>& tap : taps)
    {
        if (tap->remove(sink) && tap->isEmpty())
        {
            queue_.post([this] { update(); });
        }
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
    const std::lock_guard<std::mutex> guard(mutex_);
    if (viewers_++ > 0)
    {
        return;
    }
    const auto startAtOnce = [this]
    {
        // The first viewer does not wait for the pause of those who gave up before.
        restartScheduled_ = false;
        update();
    };
    queue_.post(startAtOnce);
}

void CameraStream::release()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (viewers_ > 0 && --viewers_ == 0)
    {
        queue_.post([this] { update(); });
    }
}

void CameraStream::requestKeyFrame()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (keyFrameAsked_)
    {
        return;
    }
    keyFrameAsked_ = true;
    const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(
        keyFrameAt_ + options_.keyFrameInterval - Clock::now());
    queue_.post([this] { sendKeyFrameRequest(); }, std::max(pause, std::chrono::milliseconds(0)));
}

int CameraStream::starts() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return starts_;
}

bool CameraStream::isRunning() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return running_;
}

void CameraStream::update()
{
    bool wanted = false;
    bool describing = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        describing = describing_;
        wanted = viewers_ > 0 || describing_;
    }
    if (!wanted)
    {
        if (pipeline_)
        {
            pipeline_->setTaps(usedTaps());
            scheduleStop();
        }
        return;
    }
    stopScheduled_ = false;
    ++wishes_;
    if (pipeline_)
    {
        pipeline_->setTaps(usedTaps());
    }
    else if (describing || !restartScheduled_)
    {
        start();
    }
}

void CameraStream::start()
{
    const std::uint64_t run = ++run_;
    restartScheduled_ = false;
    startedAt_ = Clock::now();
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++starts_;
        running_ = true;
    }
    Log::info("{}: starting", title_);
    StreamPipeline::Events events;
    events.described = [this, run] { queue_.post([this, run] { onDescribed(run, false); }); };
    events.ended = [this, run](const std::string& why)
    { queue_.post([this, run, why] { onEnded(run, why); }); };
    pipeline_ = std::make_unique<StreamPipeline>(config_, title_, way_, mediaTap_, std::move(events));
    std::string error;
    if (!pipeline_->start(usedTaps(), error))
    {
        // An error message of the bus says more than that it did not start; it is queued before this.
        queue_.post([this, run, error] { onEnded(run, error); });
        return;
    }
    queue_.post([this, run] { checkForSilence(run, 0); }, options_.longestSilence);
}

void CameraStream::stop()
{
    ++run_;
    pipeline_.reset();
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        running_ = false;
    }
    for (const auto& [key, tap] : usedTaps())
    {
        tap->discontinuity();
    }
    mediaTap_->discontinuity();
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
        const std::lock_guard<std::mutex> guard(mutex_);
        changed = !tracks_ || !sameTracks(*tracks_, *tracks);
        if (changed)
        {
            tracks_ = tracks;
        }
        describing_ = false;
        failed_ = false;
    }
    if (changed)
    {
        for (const SubMediaInfo& track : *tracks)
        {
            Log::debug("{}: {} is {} {}", title_, track.trackId, track.encodingName, track.formatParameters);
        }
        changed_();
    }
    update();
}

void CameraStream::onDeadline(std::uint64_t wish)
{
    const auto unfulfilled = [this, wish]
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return describing_ && wish == descriptionWish_;
    };
    if (!unfulfilled())
    {
        return;
    }
    // Better the tracks that are there than none: an audio track may stay silent for ever.
    onDescribed(run_, true);
    if (unfulfilled())
    {
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
        fail("the source fell silent");
        return;
    }
    queue_.post([this, run, packets] { checkForSilence(run, packets); }, options_.longestSilence);
}

void CameraStream::onEnded(std::uint64_t run, const std::string& why)
{
    if (run == run_ && pipeline_)
    {
        fail(why);
    }
}

void CameraStream::fail(const std::string& why)
{
    Log::warning("{}: {}", title_, Log::safe(why));
    way_ += pipeline_ && pipeline_->mayWorkAnotherWay() ? 1 : 0;
    stop();
    if (Clock::now() - startedAt_ >= goodRun)
    {
        failures_ = 0;
    }
    bool told = false;
    bool viewers = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        viewers = viewers_ > 0;
        if (!tracks_)
        {
            told = true;
            describing_ = false;
            failed_ = true;
            failedAt_ = Clock::now();
        }
    }
    ++failures_;
    if (viewers)
    {
        scheduleRestart();
    }
    if (told)
    {
        changed_();
    }
}

void CameraStream::scheduleStop()
{
    if (stopScheduled_)
    {
        return;
    }
    stopScheduled_ = true;
    const std::uint64_t since = wishes_;
    const auto stopUnlessWanted = [this, since]
    {
        if (stopScheduled_ && since == wishes_ && pipeline_)
        {
            stopScheduled_ = false;
            Log::info("{}: stopping, nobody watches", title_);
            stop();
        }
    };
    queue_.post(stopUnlessWanted, options_.linger);
}

void CameraStream::scheduleRestart()
{
    const std::size_t last = options_.restartPauses.size() - 1;
    const std::chrono::milliseconds pause = options_.restartPauses[std::min(failures_ - 1, last)];
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
    queue_.post(restart, pause);
}

void CameraStream::sendKeyFrameRequest()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        keyFrameAsked_ = false;
        keyFrameAt_ = Clock::now();
    }
    if (pipeline_)
    {
        pipeline_->requestKeyFrame();
    }
}

StreamPipeline::Taps CameraStream::usedTaps()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    for (auto tap = taps_.begin(); tap != taps_.end();)
    {
        tap = tap->second->isEmpty() ? taps_.erase(tap) : std::next(tap);
    }
    return taps_;
}

}  // namespace refhost
