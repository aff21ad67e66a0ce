#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"

/// The host's playback dispatch by sessions: one recording per session id, with its tracks and its place.
///
/// A track is named by session id and track id. Instants are seconds of normal play time, whose 0 is the
/// first frame that is sent: MediaInfo::recordBeginTime of the description that the session was set up with.
/// Results: 0 on success, otherwise a code of the host, which the playback controller passes on.
///
/// Threads: any; does its own locking. For one session the host calls one operation after the other.
class OV_HOST_API RTPPlayBackDispacherMgr
{
public:
    /// A new handle to the one dispatcher of the process; never empty.
    static SafePointer<RTPPlayBackDispacherMgr> getInstance();

    virtual ~RTPPlayBackDispacherMgr() noexcept(false);
    RTPPlayBackDispacherMgr(const RTPPlayBackDispacherMgr&) = delete;
    RTPPlayBackDispacherMgr& operator=(const RTPPlayBackDispacherMgr&) = delete;

    /// The description that initDispatcher() and setup() go by which follow on the same thread. It names no
    /// session, so it must hold for the calling thread alone: others set sessions up at the same time.
    /// \param info  copied
    int setMediaInfo(const MediaInfo& info);

    /// Makes a session that plays a recording. Called before each setup(), so also for a session that is
    /// there: it stays as it is then, with its tracks and its place.
    /// \param record  the interval that the URL names
    int initDispatcher(const std::string& sessionId, const DeviceInfoEx& device,
                       const DeviceExAbility& ability, const RecordInfo& record);

    /// Creates the packetiser of a track and sets its connection to the client. The dispatcher keeps a handle of
    /// its own until stop(). A session whose last track is stopped ends.
    int setup(const std::string& sessionId, const std::string& trackId,
              const SafePointer<IConnection>& connection);

    /// Starts sending where the recording stands, initially at its start; a playing track continues.
    int play(const std::string& sessionId, const std::string& trackId);

    /// \param start, end  what to play, 0 <= start < end. The controller's correctPlayRange() counts from the
    ///                    URL's begin and does not know a first frame from before it, so it cuts such a
    ///                    presentation short: a host that has one bounds its ranges by the description.
    /// \param rangeKind   a number of the host's that the library passes on unread
    /// \param rangeFlag   likewise
    int setPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                     int rangeKind, bool rangeFlag);

    /// \param[out] start, end  what plays from now on; left as they were on failure
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start, double& end);

    /// \param[out] info  the packet that the track sends next; unchanged on failure
    int getCurRTPPacketInfo(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& info);

    /// Stops sending and keeps the place; no packet of the track leaves after the return.
    int pause(const std::string& sessionId, const std::string& trackId);

    /// \param instant  where the track pauses by itself
    int setPauseRange(const std::string& sessionId, const std::string& trackId, double instant);

    /// \param scale  how fast media time runs, 1 being natural
    /// \param speed  how fast it is delivered, 1 being as it plays
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale, double speed);

    /// \param[out] ssrc  the SSRC of the track's packets, its 32 bits as an int; unchanged on failure
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc);

    /// \param[out] connected  false when the client is gone; unchanged on failure
    int getConnectionState(std::string sessionId, std::string trackId, bool& connected);

    /// Ends the track: drops packetiser and connection. No packet leaves after the return.
    int stop(const std::string& sessionId, const std::string& trackId);

private:
    RTPPlayBackDispacherMgr();

    struct Impl;
    Impl* impl_;
};
