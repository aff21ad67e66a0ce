#include "refhost/ingest/IngestRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"
#include "refhost/capture/RunEvents.h"
#include "refhost/ingest/IngestTrack.h"
#include "refhost/ingest/client/CameraUrl.h"
#include "refhost/ingest/client/RtspClient.h"
#include "refhost/media/GstCodec.h"
#include "refhost/net/ConnectFailure.h"
#include "refhost/rtp/RtcpWriter.h"

namespace refhost
{
namespace
{

constexpr std::chrono::seconds reportInterval(5);
constexpr std::chrono::seconds clockPatience(20);

bool isChosen(const CameraTrack& track, MediaKind kind)
{
    return track.kind == kind && !track.backChannel;
}

SourceFailure::Cause causeOf(RtspClientEnd::Kind kind)
{
    using Kind = RtspClientEnd::Kind;
    switch (kind)
    {
        case Kind::unreachable:
        case Kind::timedOut:
            return SourceFailure::Cause::unreachable;
        case Kind::unauthorized:
        case Kind::notFound:
        case Kind::busy:
            return SourceFailure::Cause::refused;
        case Kind::silent:
            return SourceFailure::Cause::silent;
        case Kind::noUsableTransport:
        case Kind::protocolError:
        case Kind::endedByCamera:
            break;
    }
    return SourceFailure::Cause::other;
}

/// The host and port of a camera's URL; empty when it cannot be read.
std::string peerOf(const std::string& location)
{
    const std::optional<CameraUrl> url = CameraUrl::parse(location);
    return url ? ConnectFailure::peer(url->host, url->port) : std::string();
}

std::string nameForPeople(Codec codec)
{
    switch (codec)
    {
        case Codec::h264:
            return "H.264";
        case Codec::h265:
            return "H.265";
        default:
            return std::string(infoOf(codec).encodingName);
    }
}

/// Why none of the tracks that a camera describes is read.
std::string missingText(const StreamConfig& config, const std::vector<CameraTrack>& described)
{
    std::string missing;
    for (const Codec codec : config.codecs())
    {
        missing += fmt::format("{}no {}", missing.empty() ? "" : " and ", nameForPeople(codec));
    }
    std::string has;
    constexpr std::size_t maxNamed = 4;
    for (std::size_t i = 0; i < std::min(described.size(), maxNamed); ++i)
    {
        has += fmt::format("{}{}", i == 0 ? "" : ", ", Log::safe(described[i].encodingName, 40));
    }
    return fmt::format("{} in the description, which has {}", missing, has);
}

}  // namespace

/// What the loop works on. The loop's tasks keep it, so that it lives until the connection is closed.
class IngestRun::Camera final : public RtspClientEvents, public std::enable_shared_from_this<Camera>
{
public:
    Camera(Setup setup, EventLoop& loop, std::shared_ptr<StreamConnector> connector, CameraPauses& pauses)
        : setup_(std::move(setup)),
          loop_(loop),
          connector_(std::move(connector)),
          pauses_(pauses),
          events_(setup_.title, setup_.events),
          taps_(setup_.taps)
    {
        options_.transport =
            setup_.config.source.transport == "udp" ? CameraTransport::udp : CameraTransport::tcp;
    }

    ~Camera() = default;
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    // Any thread.

    /// Runs an operation on the loop, where it keeps this alive.
    void post(void (Camera::*operation)())
    {
        loop_.post([self = shared_from_this(), operation] { (self.get()->*operation)(); });
    }

    void startAfter(Duration delay)
    {
        loop_.after(delay,
                    [self = shared_from_this()]
                    {
                        self->start();
                        self->scheduleReports();
                    });
    }

    void setTaps(const Taps& taps)
    {
        {
            const MutexLock guard(mutex_);
            taps_ = taps;
        }
        post(&Camera::applyTaps);
    }

    std::uint64_t packetCount() const
    {
        return packets_.load(std::memory_order_relaxed);
    }

    bool mayWorkByOtherMeans() const
    {
        return otherMeans_;
    }

    bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const
    {
        const MutexLock guard(mutex_);
        if (described_.empty() || (!partial && !allDescribed_))
        {
            return false;
        }
        tracks = described_;
        return true;
    }

    void stop()
    {
        if (events_.stop())
        {
            post(&Camera::end);
        }
    }

    RunEvents& events()
    {
        return events_;
    }

private:
    // The loop's thread, all that follows.

    void start()
    {
        if (events_.isMuted())
        {
            return;
        }
        epoch_ = HostClock::system().now();
        refusal_ = pauses_.refusal(setup_.config.source.location, epoch_);
        if (!refusal_.empty())
        {
            SourceFailure failure(refusal_, SourceFailure::Cause::refused);
            failure.untried = true;
            events_.ended(failure);
            return;
        }
        client_ =
            std::make_unique<RtspClient>(loop_, *connector_, setup_.config.source.location, options_, *this);
        client_->start();
    }

    void end()
    {
        if (client_)
        {
            sendReports(true);
            client_->stop([self = shared_from_this()] { self->onClosed(); });
            client_.reset();
            return;
        }
        onClosed();
    }

    void onClosed()
    {
        tracks_.clear();
        events_.finish();
    }

    void applyTaps()
    {
        Taps taps;
        {
            const MutexLock guard(mutex_);
            taps = taps_;
        }
        for (const std::unique_ptr<IngestTrack>& track : tracks_)
        {
            if (track)
            {
                track->setTaps(tapsOf(taps, trackIdOf(track->codec())));
            }
        }
    }

    std::vector<std::size_t> onDescribed(const std::vector<CameraTrack>& described) override
    {
        tracks_.clear();
        tracks_.resize(described.size());
        std::vector<std::size_t> chosen;
        for (const MediaKind kind : {MediaKind::video, MediaKind::audio})
        {
            const bool requested = kind == MediaKind::video ? setup_.config.videoCodec.has_value()
                                                            : setup_.config.audioCodec.has_value();
            const auto found =
                std::find_if(described.begin(), described.end(),
                             [kind](const CameraTrack& track) { return isChosen(track, kind); });
            if (!requested || found == described.end())
            {
                continue;
            }
            const auto index = static_cast<std::size_t>(found - described.begin());
            if (!addTrack(*found, index))
            {
                return {};
            }
            chosen.push_back(index);
        }
        if (chosen.empty())
        {
            refusal_ = withPeer(missingText(setup_.config, described));
        }
        applyTaps();
        return chosen;
    }

    /// \returns false with the refusal set where it takes GStreamer to read the track
    bool addTrack(const CameraTrack& track, std::size_t index)
    {
        const std::optional<Codec> codec = Depacketizer::codecOf(track.encodingName);
        std::string error;
        if (!codec || !GstCodec::passes(*codec, setup_.config.codecs(), true))
        {
            error = "has to be decoded";
        }
        else
        {
            tracks_[index] = IngestTrack::make(
                {*codec, track.payload(), track.payloadType,
                 setup_.serverClock ? IngestTrack::Clock::server : IngestTrack::Clock::camera, epoch_,
                 setup_.title},
                setup_.mediaTap, error);
        }
        if (!tracks_[index])
        {
            otherMeans_ = true;
            refusal_ = fmt::format("the camera's {} is read by GStreamer: {}", track.encodingName, error);
        }
        return tracks_[index] != nullptr;
    }

    void onPlaying(const std::vector<CameraPlayInfo>& playing) override
    {
        for (std::size_t i = 0; i < tracks_.size(); ++i)
        {
            if (std::none_of(playing.begin(), playing.end(),
                             [i](const CameraPlayInfo& info) { return info.track == i; }))
            {
                tracks_[i].reset();
            }
        }
        playingSince_ = HostClock::system().now();
        pauses_.notePlaying(setup_.config.source.location);
        announce();
    }

    void onPacket(std::size_t index, const std::uint8_t* data, std::size_t size,
                  MonotonicTime arrival) override
    {
        IngestTrack* const track = index < tracks_.size() ? tracks_[index].get() : nullptr;
        if (track == nullptr || events_.isMuted())
        {
            return;
        }
        packets_.fetch_add(1, std::memory_order_relaxed);
        const MediaFormat* const before = track->format().get();
        track->onPacket(data, size, arrival);
        if (track->format().get() != before && playingSince_)
        {
            announce();
        }
    }

    void onReport(std::size_t index, const std::uint8_t* data, std::size_t size,
                  MonotonicTime arrival) override
    {
        IngestTrack* const track = index < tracks_.size() ? tracks_[index].get() : nullptr;
        if (track == nullptr || events_.isMuted())
        {
            return;
        }
        const IngestTrack::Report report = track->onReport(data, size, arrival);
        if (report.clockWrong)
        {
            events_.clockUnusable("the camera's clock is wrong");
        }
        if (report.ended)
        {
            events_.ended("the camera said that it ends its media");
        }
    }

    void onEnded(const RtspClientEnd& end) override
    {
        if (end.otherTransport)
        {
            events_.otherMeans(fmt::format("{}: the other transport is tried", withPeer(end.text)));
            // Over that alone, and when this session is torn down: many cameras have room for one.
            options_.transport = *end.otherTransport;
            options_.otherTransport = false;
            client_->stop([self = shared_from_this()] { self->start(); });
            return;
        }
        RtspClientEnd said = end;
        said.text = withPeer(end.text);
        pauses_.noteEnd(setup_.config.source.location, said, HostClock::system().now());
        if (end.kind == RtspClientEnd::Kind::noUsableTransport)
        {
            otherMeans_ = true;
        }
        events_.ended(refusal_.empty() ? SourceFailure(said.text, causeOf(end.kind)) : refusal_);
    }

    /// A text of the log that names the camera's host and port.
    std::string withPeer(const std::string& text) const
    {
        return peer_.empty() || text.find(peer_) != std::string::npos ? text
                                                                      : fmt::format("{}: {}", peer_, text);
    }

    /// Describes the tracks whose format is known.
    void announce()
    {
        std::vector<SubMediaInfo> described;
        bool all = true;
        for (const std::unique_ptr<IngestTrack>& track : tracks_)
        {
            SubMediaInfo info;
            if (!track)
            {
                continue;
            }
            if (track->format() && Packetizer::describe(*track->format(), trackIdOf(track->codec()), info))
            {
                described.push_back(info);
            }
            else
            {
                all = false;
            }
        }
        std::sort(described.begin(), described.end(),
                  [](const SubMediaInfo& left, const SubMediaInfo& right)
                  { return left.trackId < right.trackId; });
        {
            const MutexLock guard(mutex_);
            described_ = std::move(described);
            allDescribed_ = all;
        }
        if (all)
        {
            events_.described();
        }
    }

    void scheduleReports()
    {
        loop_.after(reportInterval,
                    [weak = weak_from_this()]
                    {
                        const std::shared_ptr<Camera> self = weak.lock();
                        if (self && self->client_ && !self->events_.isMuted())
                        {
                            self->sendReports(false);
                            self->judgeClock();
                            self->scheduleReports();
                        }
                    });
    }

    /// \param bye  no more will be read
    void sendReports(bool bye)
    {
        const MonotonicTime now = HostClock::system().now();
        for (std::size_t i = 0; i < tracks_.size(); ++i)
        {
            const std::optional<ReceptionReport> reception =
                tracks_[i] ? tracks_[i]->receptionReport(now) : std::nullopt;
            if (!reception)
            {
                continue;
            }
            RtcpWriter::ReceiverReport report;
            report.ssrc = tracks_[i]->ssrc() ^ ssrcMask;
            report.hasBlock = true;
            report.source = tracks_[i]->ssrc();
            report.reception = *reception;
            const RtcpWriter packet = RtcpWriter::ofReceiver(report, name_, bye);
            client_->sendReport(i, packet.data(), packet.size());
        }
    }

    void judgeClock()
    {
        if (clockJudged_ || setup_.serverClock || !playingSince_ ||
            HostClock::system().now() - *playingSince_ < clockPatience)
        {
            return;
        }
        clockJudged_ = true;
        if (std::none_of(tracks_.begin(), tracks_.end(),
                         [](const auto& track) { return track && track->hasCameraTime(); }))
        {
            events_.clockUnusable("the camera sends no sender reports");
        }
    }

    static constexpr std::uint32_t ssrcMask = 0x5a5a5a5aU;  // ours is another one than the camera's

    const Setup setup_;
    EventLoop& loop_;
    const std::shared_ptr<StreamConnector> connector_;
    CameraPauses& pauses_;
    const std::string peer_ = peerOf(setup_.config.source.location);
    const RtcpWriter::Name name_ = RtcpWriter::randomName();

    std::unique_ptr<RtspClient> client_;
    std::vector<std::unique_ptr<IngestTrack>> tracks_;  ///< as the camera describes them; null where not read
    MonotonicTime epoch_;
    std::optional<MonotonicTime> playingSince_;
    RtspClientOptions options_;
    bool clockJudged_ = false;
    std::string refusal_;  ///< why the camera's tracks are not read here

    RunEvents events_;
    std::atomic<bool> otherMeans_{false};
    std::atomic<std::uint64_t> packets_{0};
    mutable Mutex mutex_;
    Taps taps_ OV_GUARDED_BY(mutex_);
    std::vector<SubMediaInfo> described_ OV_GUARDED_BY(mutex_);
    bool allDescribed_ OV_GUARDED_BY(mutex_) = false;
};

IngestRun::IngestRun(Setup setup, EventLoop& loop, std::shared_ptr<StreamConnector> connector,
                     CameraPauses& pauses, Duration startDelay)
    : camera_(std::make_shared<Camera>(std::move(setup), loop, std::move(connector), pauses))
{
    camera_->startAfter(startDelay);
}

IngestRun::~IngestRun()
{
    mute();
    stop();
}

void IngestRun::setTaps(const Taps& taps)
{
    camera_->setTaps(taps);
}

std::uint64_t IngestRun::packetCount() const
{
    return camera_->packetCount();
}

bool IngestRun::mayWorkByAnotherTransport() const
{
    return camera_->mayWorkByOtherMeans();
}

bool IngestRun::describe(bool partial, std::vector<SubMediaInfo>& tracks) const
{
    return camera_->describe(partial, tracks);
}

void IngestRun::stop()
{
    camera_->stop();
}

void IngestRun::mute()
{
    camera_->events().mute();
}

bool IngestRun::awaitEnd(Clock::time_point deadline) const
{
    return camera_->events().awaitEnd(deadline);
}

}  // namespace refhost
