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

/// The live dispatch by sessions behind LiveDispatcherMgr: one session per id, with tracks of one stream, on
/// LiveDispatcher's streams.
///
/// Operations of LiveDispatcherMgr have the same meaning here. Sessions that send to a group are no
/// different: several RTSP sessions use them by one id. Threads: any. No operation waits for the source or a
/// client.
class LiveSessionDispatcher
{
public:
    /// The process's dispatcher, on the streams of LiveDispatcher::instance(); made at the first call, never
    /// destroyed.
    static LiveSessionDispatcher& instance();

    explicit LiveSessionDispatcher(std::shared_ptr<LiveStreams> streams);
    ~LiveSessionDispatcher();
    LiveSessionDispatcher(const LiveSessionDispatcher&) = delete;
    LiveSessionDispatcher& operator=(const LiveSessionDispatcher&) = delete;

    bool has(const std::string& sessionId);
    /// Skips back-channel tracks. An existing session with this id stays unchanged.
    /// \returns 0, or hostStreamUnknown when no such stream is configured
    int initSession(const std::string& sessionId, int cameraId, int streamId, const MediaInfo& info,
                    int payloadSize);
    /// Ends the session if it has no connection afterwards, because nobody else would.
    /// \returns 0, hostTrackUnknown, or hostConnectionUnusable for a connection not made by this host
    int addConnection(const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection);
    /// \returns 0, hostTrackUnknown, hostConnectionUnusable without an open connection, or hostStreamFailed
    ///          when the stream is gone; a failure changes nothing
    int play(const std::string& sessionId, const std::string& trackId);
    /// \returns 0, even if the track does not play, or hostTrackUnknown
    int pause(const std::string& sessionId, const std::string& trackId);
    /// \returns 0 or hostTrackUnknown
    int remove(const std::string& sessionId, const std::string& trackId);
    /// \returns 0 or hostTrackUnknown
    int getSsrc(const std::string& sessionId, const std::string& trackId, int& ssrc);

    /// \see LiveDispatcher::firstPacketOfPlay()
    bool firstPacketOfPlay(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out);
    /// \returns false when the session has no such track
    bool statistics(const std::string& sessionId, const std::string& trackId, TrackStatistics& out);

    /// Number of sessions; 0 after the last TEARDOWN.
    std::size_t sessionCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
