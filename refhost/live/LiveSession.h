#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Footprint.h"
#include "refhost/base/SmallMutex.h"
#include "refhost/live/LiveTrack.h"
#include "refhost/live/TrackSender.h"
#include "refhost/rtp/RtcpWriter.h"

namespace refhost
{

/// The tracks of one RTSP session, under one lock. They share a canonical name and start together.
///
/// The lock is held while packets are sent, so that nothing is sent after pause() or remove(). A fan-out that
/// finds it taken does not wait: it requests a pump, which the lock's holder does on release. Threads: any.
class LiveSession : public std::enable_shared_from_this<LiveSession>
{
public:
    LiveSession();

    /// Adds a track; replaces the one with the same keys.
    /// \returns true when there was none
    bool add(const std::string& streamKey, const SubMediaInfo& info,
             const std::shared_ptr<LiveStream>& stream, int payloadSize);

    /// The operations of LiveDispatcher for this session. hostTrackUnknown when there is no such track.
    int connect(const std::string& streamKey, const std::string& trackId,
                const SafePointer<IConnection>& connection);
    int play(const std::string& streamKey, const std::string& trackId);
    int pause(const std::string& streamKey, const std::string& trackId);
    int remove(const std::string& streamKey, const std::string& trackId);
    /// Like remove(), but keeps the track: connect() revives it.
    int endTrack(const std::string& streamKey, const std::string& trackId);
    int ssrc(const std::string& streamKey, const std::string& trackId, int& ssrc);
    bool firstPacket(const std::string& trackId, RTPPacketInfo& out);
    bool statistics(const std::string& trackId, TrackStatistics& out);

    /// Whether a track has a transport, open or closed.
    bool connected();
    /// Ends every track.
    void end();

    /// Sends what every track can send now, or leaves that to the thread that holds the lock.
    /// \param fresh  the unit that has just arrived; may be null
    void pump(const FreshUnit* fresh);

    /// Has the processor fetch the session itself, for prefetch().
    void prefetchFirst() const
    {
        __builtin_prefetch(this);
        __builtin_prefetch(reinterpret_cast<const char*>(this) + Footprint::lineSize);
        __builtin_prefetch(reinterpret_cast<const char*>(this) + 2 * Footprint::lineSize);
    }
    /// Has the processor fetch what pump() uses. Takes no lock.
    void prefetch() const
    {
        footprint_.prefetch();
    }

    /// Holds the lock; on release, does the pumping left to this thread.
    class OV_SCOPED_CAPABILITY Lock
    {
    public:
        explicit Lock(LiveSession& session) OV_ACQUIRE(session.mutex_);
        ~Lock() OV_RELEASE();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        LiveSession& session_;
    };

private:
    using Senders = std::vector<std::shared_ptr<TrackSender>>;

    Senders::iterator placeOf(const std::string& streamKey, const std::string& trackId) OV_REQUIRES(mutex_);
    Senders::iterator find(const std::string& streamKey, const std::string& trackId) OV_REQUIRES(mutex_);
    TrackSender* find(const std::string& trackId) OV_REQUIRES(mutex_);
    TrackSender* videoSenderOf(const TrackSender& sender) OV_REQUIRES(mutex_);
    void pumpLocked(const FreshUnit* fresh) OV_REQUIRES(mutex_);
    void noteFootprint() OV_REQUIRES(mutex_);

    SmallMutex mutex_;
    std::atomic<bool> pumpRequested_{false};
    const RtcpWriter::Name name_;
    Senders senders_ OV_GUARDED_BY(mutex_);  // video first; those of endTrack() too
    Footprint footprint_;                    // of the first sender
};

}  // namespace refhost
