#include "refhost/capture/FileRun.h"

#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/HostClock.h"
#include "refhost/capture/FilePlayer.h"
#include "refhost/capture/FileTrackOutput.h"
#include "refhost/capture/RunEvents.h"
#include "refhost/media/GstCodec.h"
#include "refhost/rtp/payload/Packetizer.h"
#include "refhost/threads/AllSignalsBlocked.h"

namespace refhost
{
namespace
{

/// What reads the disk for longer than this at once is ended where it asks for more.
constexpr std::chrono::seconds maxOperation(10);

std::int64_t ticksNow()
{
    return SourceRun::Clock::now().time_since_epoch().count();
}

}  // namespace

/// Shared by the run and its thread, whichever lives longer.
class FileRun::State
{
public:
    explicit State(Setup setup)
        : setup_(std::move(setup)),
          player_(setup_.config.source.location,
                  {setup_.config.videoCodec.has_value(), setup_.config.audioCodec.has_value()},
                  [this] { return isInterrupted(); }),
          events_(setup_.title, setup_.events),
          taps_(std::make_shared<const Taps>(setup_.taps))
    {
    }

    // Any thread.

    void setTaps(const Taps& taps)
    {
        const MutexLock guard(mutex_);
        taps_ = std::make_shared<const Taps>(taps);
    }

    std::uint64_t packetCount() const
    {
        return packets_.load(std::memory_order_relaxed);
    }

    bool mayWorkByOtherMeans() const
    {
        return otherMeans_;
    }

    bool describe(std::vector<SubMediaInfo>& tracks) const
    {
        const MutexLock guard(mutex_);
        if (described_.empty())
        {
            return false;
        }
        tracks = described_;
        return true;
    }

    Clock::duration busyFor() const
    {
        const std::int64_t since = busySince_;
        return since == 0 ? Clock::duration(0) : Clock::duration(ticksNow() - since);
    }

    void stop()
    {
        events_.stop();
        {
            const MutexLock guard(mutex_);
            stopping_ = true;
        }
        changed_.notifyAll();
    }

    RunEvents& events()
    {
        return events_;
    }

    // The run's thread.

    void run()
    {
        pthread_setname_np(pthread_self(), "file");
        const std::string problem = play();
        if (!problem.empty())
        {
            events_.ended(problem);
        }
        {
            const MutexLock guard(mutex_);
            while (!stopping_)
            {
                changed_.wait(mutex_);
            }
        }
        events_.finish();
    }

private:
    /// Marks what may hang.
    class Operation
    {
    public:
        explicit Operation(std::atomic<std::int64_t>& since) : since_(since)
        {
            since_ = ticksNow();
        }
        ~Operation()
        {
            since_ = 0;
        }
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;

    private:
        std::atomic<std::int64_t>& since_;
    };

    bool isInterrupted() const
    {
        return stopping_ || busyFor() > maxOperation;
    }

    /// \returns why it ended; empty where it was stopped
    std::string play()
    {
        std::string problem = open();
        while (problem.empty() && !stopping_)
        {
            std::optional<Duration> due;
            {
                const Operation reading(busySince_);
                due = player_.due(HostClock::system().now() - epoch_, problem);
            }
            if (!due || !waitUntil(epoch_ + *due))
            {
                continue;
            }
            FilePlayer::Item item = player_.take();
            packets_.fetch_add(1, std::memory_order_relaxed);
            std::optional<FileTrackOutput>& output = outputs_.at(item.video ? 0 : 1);
            if (output && !events_.isMuted())
            {
                output->send(std::move(item));
            }
        }
        return stopping_ ? std::string() : problem;
    }

    /// \returns why the file cannot be played; empty on success
    std::string open()
    {
        const Operation opening(busySince_);
        MediaFile::Problem problem;
        if (!player_.open(problem))
        {
            otherMeans_ = problem.otherMeans && !stopping_;
            const std::string& path = setup_.config.source.location;
            return problem.otherMeans ? fmt::format("{} is read by GStreamer: {}", path, problem.text)
                                      : fmt::format("cannot read {}: {}", path, problem.text);
        }
        epoch_ = HostClock::system().now();
        std::vector<SubMediaInfo> described;
        for (const bool video : {true, false})
        {
            const FileTrack* const track = player_.track(video);
            if (track == nullptr)
            {
                continue;
            }
            const Codec codec = track->codec();
            SubMediaInfo info;
            if (!GstCodec::passes(codec, setup_.config.codecs(), false) ||
                !Packetizer::describe(*track->format, trackIdOf(codec), info))
            {
                otherMeans_ = true;
                return fmt::format("{} is read by GStreamer: its {} cannot be sent as it is",
                                   setup_.config.source.location, infoOf(codec).name);
            }
            info.frameRate = track->frameRate > 0 ? track->frameRate : info.frameRate;
            described.push_back(info);
            outputs_.at(video ? 0 : 1).emplace(*track->format, epoch_, setup_.mediaTap);
        }
        {
            const MutexLock guard(mutex_);
            described_ = std::move(described);
        }
        events_.described();
        return {};
    }

    /// \returns false when the run is to stop
    bool waitUntil(MonotonicTime due)
    {
        const Clock::time_point moment(due.time_since_epoch());
        const MutexLock guard(mutex_);
        while (!stopping_ && Clock::now() < moment)
        {
            changed_.waitUntil(mutex_, moment);
        }
        if (taps_ != usedTaps_)
        {
            usedTaps_ = taps_;
            useTaps(*usedTaps_);
        }
        return !stopping_;
    }

    void useTaps(const Taps& taps)
    {
        for (std::optional<FileTrackOutput>& output : outputs_)
        {
            if (output)
            {
                output->setTaps(tapsOf(taps, trackIdOf(output->codec())));
            }
        }
    }

    const Setup setup_;

    // The run's thread alone.
    FilePlayer player_;
    MonotonicTime epoch_;
    std::array<std::optional<FileTrackOutput>, 2> outputs_;  ///< video, audio
    std::shared_ptr<const Taps> usedTaps_;

    RunEvents events_;
    std::atomic<bool> stopping_{false};  ///< set under the mutex
    std::atomic<bool> otherMeans_{false};
    std::atomic<std::uint64_t> packets_{0};
    std::atomic<std::int64_t> busySince_{0};  ///< 0: it is idle
    mutable Mutex mutex_;
    ConditionVariable changed_;
    std::shared_ptr<const Taps> taps_ OV_GUARDED_BY(mutex_);
    std::vector<SubMediaInfo> described_ OV_GUARDED_BY(mutex_);
};

bool FileRun::mayRead(const Setup& setup)
{
    return setup.config.source.kind == SourceConfig::Kind::file && setup.attempt == 0;
}

FileRun::FileRun(Setup setup) : state_(std::make_shared<State>(std::move(setup)))
{
    const AllSignalsBlocked blocked;
    std::thread([state = state_] { state->run(); }).detach();
}

FileRun::~FileRun()
{
    mute();
    stop();
    state_->events().abandon();
}

void FileRun::setTaps(const Taps& taps)
{
    state_->setTaps(taps);
}

std::uint64_t FileRun::packetCount() const
{
    return state_->packetCount();
}

bool FileRun::mayWorkByAnotherTransport() const
{
    return state_->mayWorkByOtherMeans();
}

bool FileRun::describe(bool, std::vector<SubMediaInfo>& tracks) const
{
    return state_->describe(tracks);
}

FileRun::Clock::duration FileRun::busyFor() const
{
    return state_->busyFor();
}

void FileRun::stop()
{
    state_->stop();
}

void FileRun::mute()
{
    state_->events().mute();
}

bool FileRun::awaitEnd(Clock::time_point deadline) const
{
    return state_->events().awaitEnd(deadline);
}

}  // namespace refhost
