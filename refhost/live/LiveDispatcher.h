#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "refhost/live/LiveSettings.h"
#include "refhost/live/LiveStreams.h"
#include "refhost/live/TrackSender.h"
#include "refhost/media/StreamSource.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The live dispatch behind RTPStreamDispatcherMgr: sends tracks of streams to sessions.
///
/// Operations of RTPStreamDispatcherMgr have the same meaning here; the others serve the RTSP server. Tracks
/// of a session that are played together start together, the audio at the video's first frame; to that end
/// the RTSP server holds all transports until each track was played. Threads: any. No operation waits for the
/// source or a client.
class LiveDispatcher
{
public:
    /// The process's dispatcher; made at the first call, never destroyed.
    static LiveDispatcher& instance();

    /// A separate dispatcher, for tests.
    explicit LiveDispatcher(const LiveSettings& settings);
    ~LiveDispatcher();
    LiveDispatcher(const LiveDispatcher&) = delete;
    LiveDispatcher& operator=(const LiveDispatcher&) = delete;

    /// Sets the settings of streams and sessions that start from now on.
    /// \param starts  streams with a start of their own
    void configure(const LiveSettings& settings, LiveStreams::Starts starts = {});

    /// Its streams, for a dispatcher that shares them.
    const std::shared_ptr<LiveStreams>& streams() const;

    /// \returns 0, or hostStreamUnknown when the key names no configured stream
    int initTrack(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                  const SubMediaInfo& info, int payloadSize);
    /// \returns 0, hostTrackUnknown, or hostConnectionUnusable for a connection not made by this host
    int addConnection(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection);
    /// \returns 0, hostTrackUnknown, hostConnectionUnusable without an open connection, or hostStreamFailed
    ///          when the stream is gone; a failure changes nothing
    int play(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    /// \returns 0, even if the track does not play, or hostTrackUnknown
    int pause(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    /// \returns 0 or hostTrackUnknown
    int remove(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    /// \returns 0 or hostTrackUnknown
    int getSsrc(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                int& ssrc);

    /// The first packet of the last play() of a track, sent or to be sent, for RTP-Info. Requires: every
    /// track of the request was played, and the transports are still held.
    ///
    /// If the track was playing already, it is the packet that was next at that play(), with an estimated
    /// timestamp where its access unit was not known yet. Otherwise both numbers are exact.
    /// \returns false when the session has no such track or it never played
    bool firstPacketOfPlay(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out);

    /// \returns false when the session has no such track
    bool statistics(const std::string& sessionId, const std::string& trackId, TrackStatistics& out);

    /// Number of tracks of sessions; 0 after the last TEARDOWN.
    std::size_t trackCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
