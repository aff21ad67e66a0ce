#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/device/IConnection.h"
#include "refhost/live/LiveStreams.h"
#include "refhost/live/TrackSender.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The live dispatch by sessions, behind LiveDispatcherMgr: one session for each id, with the tracks of one
/// stream, on the same streams as LiveDispatcher.
///
/// The operations that LiveDispatcherMgr declares mean the same here. Sessions with a group for a client are
/// no different: several RTSP sessions name them by one id. Threads: any. No operation waits for the source
/// or a client.
class LiveSessionDispatcher
{
public:
    /// The one dispatcher of the process, on the streams of LiveDispatcher::instance(); made at the first
    /// call, never destroyed.
    static LiveSessionDispatcher& instance();

    explicit LiveSessionDispatcher(std::shared_ptr<LiveStreams> streams);
    ~LiveSessionDispatcher();
    LiveSessionDispatcher(const LiveSessionDispatcher&) = delete;
    LiveSessionDispatcher& operator=(const LiveSessionDispatcher&) = delete;

    bool has(const std::string& sessionId);
    /// Tracks of a back-channel are left out. A session of this id that there is already stays as it is.
    /// \returns 0, or hostStreamUnknown when no such stream is configured
    int initSession(const std::string& sessionId, int cameraId, int streamId, const MediaInfo& info,
                    int payloadSize);
    /// A session that has no connection afterwards ends, because nobody would.
    /// \returns 0, hostTrackUnknown, or hostConnectionUnusable for a connection that this host did not make
    int addConnection(const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection);
    /// \returns 0, hostTrackUnknown, hostConnectionUnusable without an open connection, or hostStreamFailed
    ///          when the stream is gone; nothing changes where it fails
    int play(const std::string& sessionId, const std::string& trackId);
    /// \returns 0, also for a track that does not play, or hostTrackUnknown
    int pause(const std::string& sessionId, const std::string& trackId);
    /// \returns 0 or hostTrackUnknown
    int remove(const std::string& sessionId, const std::string& trackId);
    /// \returns 0 or hostTrackUnknown
    int getSsrc(const std::string& sessionId, const std::string& trackId, int& ssrc);

    /// \see LiveDispatcher::firstPacketOfPlay()
    bool firstPacketOfPlay(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out);
    /// \returns false when the session has no such track
    bool statistics(const std::string& sessionId, const std::string& trackId, TrackStatistics& out);

    /// How many sessions exist now; 0 after the last TEARDOWN.
    std::size_t sessionCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
