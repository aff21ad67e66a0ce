#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "hostapi/device/MTUParam.h"
#include "hostapi/live/MulticastSessionParameter.h"
#include "support/SafePointer.h"

/// The host's live dispatch by sessions: one live session per session id, with the tracks of one stream, and
/// the records of which sessions share a multicast one.
///
/// A session id is an RTSP session's, or what MulticastSessionToken makes for a camera and stream; the two
/// must never be the same text. Results: 0 on success, otherwise a code of the host, which the controllers
/// pass on.
///
/// Threads: any; does its own locking. One thing no lock of the dispatcher can do: the multicast controller
/// changes a record and its session in several steps, so a host whose threads serve several members lets the
/// methods of one multicast session follow one another.
class OV_HOST_API LiveDispatcherMgr
{
public:
    /// A new handle to the one dispatcher of the process; never empty.
    static SafePointer<LiveDispatcherMgr> getInstance();

    virtual ~LiveDispatcherMgr() noexcept(false);
    LiveDispatcherMgr(const LiveDispatcherMgr&) = delete;
    LiveDispatcherMgr& operator=(const LiveDispatcherMgr&) = delete;

    /// The MTU of the network path. A controller reads it at each SETUP over UDP unicast and
    /// subtracts 76 bytes for all headers. A host sets it before the first SETUP: it is read without a lock.
    MTUParam& getMTUParam();

    // --- sessions -----------------------------------------------------------------------------------------

    /// \returns true from a good initSession() until the session ends
    bool findSession(const std::string& sessionId);

    /// Makes a session: a packetiser for each track, with its own SSRC, first sequence number and timestamp
    /// offset. Called only for an id that findSession() does not find. A session that never gets a connection
    /// is ended by the host: the controllers do not mention it again.
    /// \param cameraId, streamId  numbers from the URL, any int
    /// \param info                the stream as described; copied
    /// \param payloadSize         max bytes of RTP payload in a packet
    int initSession(const std::string& sessionId, int cameraId, int streamId, const MediaInfo& info,
                    int payloadSize);

    /// Sets the connection of a track to the client or the group. The dispatcher keeps a handle of its own until
    /// the track ends. A further connection of the same track, as each member of a multicast session brings
    /// one, takes the place of the former; the track goes on as it was.
    int addSessionConnection(const std::string& sessionId, const std::string& trackId,
                             const SafePointer<IConnection>& connection);

    /// Starts sending with a key frame; a playing track continues.
    int play(const std::string& sessionId, const std::string& trackId);

    /// Stops sending and keeps the state for the next play(); no packet of the track leaves after the
    /// return.
    int pause(const std::string& sessionId, const std::string& trackId);

    /// Ends the track; no packet leaves after the return. The session ends with the last track that has a
    /// connection; until then addSessionConnection() starts the track again, with another SSRC. The name is
    /// spelt so: hosts bind to it.
    int deleteSessionConection(const std::string& sessionId, const std::string& trackId);

    /// \param[out] ssrc  the SSRC of the track's packets, its 32 bits as an int; unchanged on failure
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc);

    // --- records of multicast sessions --------------------------------------------------------------------

    /// \returns true when there is a record for this multicast session id
    bool findMulticastSessionId(const std::string& multicastSessionId);

    /// \param[out] param  one more handle to the record itself, not to a copy; unchanged on failure
    int getMulticastSessionParam(const std::string& multicastSessionId,
                                 SafePointer<MulticastSessionParameter>& param) const;

    /// Adds a record under its own id, or stores it back in the place of the one there is. The dispatcher
    /// keeps a handle of its own.
    int addMulticastSessionParam(const SafePointer<MulticastSessionParameter>& param);

    /// Removes the record; its handles elsewhere stay good. An unknown id changes nothing.
    int deleteMulticastSessionParam(const std::string& multicastSessionId);

private:
    LiveDispatcherMgr();

    struct Impl;
    Impl* impl_;
};
