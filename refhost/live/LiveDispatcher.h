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

/// The live dispatch behind RTPStreamDispatcherMgr: which track of which session plays from which stream.
///
/// The operations that RTPStreamDispatcherMgr declares mean the same here; the others serve the RTSP server.
/// A session's tracks that play at the same time start together: the audio with the frame's first frame.
/// For that the RTSP server holds the transports of all tracks until each has been played. Threads: any. No
/// operation waits for the source or a client.
class LiveDispatcher
{
public:
    /// The one dispatcher of the process; made at the first call, never destroyed.
    static LiveDispatcher& instance();

    /// A dispatcher of one's own; a test's.
    explicit LiveDispatcher(const LiveSettings& settings);
    ~LiveDispatcher();
    LiveDispatcher(const LiveDispatcher&) = delete;
    LiveDispatcher& operator=(const LiveDispatcher&) = delete;

    /// Changes the settings for streams and sessions that come from now on; call it before the first one.
    /// \param starts  how streams start that do not start as `settings` says
    void configure(const LiveSettings& settings, LiveStreams::Starts starts = {});

    /// The streams that it plays, for a dispatcher that shall share them.
    const std::shared_ptr<LiveStreams>& streams() const;

    /// \returns 0, or hostStreamUnknown when the key names no configured stream
    int initTrack(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                  const SubMediaInfo& info, int payloadSize);
    /// \returns 0, hostTrackUnknown, or hostConnectionUnusable for a connection that this host did not make
    int addConnection(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection);
    /// \returns 0, hostTrackUnknown, hostConnectionUnusable without an open connection, or hostStreamFailed
    ///          when the stream is gone; nothing changes where it fails
    int play(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    /// \returns 0, also for a track that does not play, or hostTrackUnknown
    int pause(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    /// \returns 0 or hostTrackUnknown
    int remove(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    /// \returns 0 or hostTrackUnknown
    int getSsrc(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                int& ssrc);

    /// The first packet that the last play() of a track sends or will send: what RTP-Info must say. Ask when
    /// every track of the request was played, before the transports are released.
    ///
    /// For a play() of a track that played already it is the packet that came next then; its timestamp is
    /// estimated where the access unit was not known yet. In all other cases both numbers are exact.
    /// \returns false when the session has no such track or it never played
    bool firstPacketOfPlay(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out);

    /// \returns false when the session has no such track
    bool statistics(const std::string& sessionId, const std::string& trackId, TrackStatistics& out);

    /// How many tracks of sessions exist now; 0 after the last TEARDOWN.
    std::size_t trackCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
