#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"

/// The host's live dispatch: packets of camera streams to the connections of sessions.
///
/// Threads: any; does its own locking. Every operation names a track of a session by three texts: the stream
/// key (camera number, "/", stream number), the session id and the track id. Results: 0 on success, otherwise
/// a code of the host, which the unicast live controller passes on (but for deleteRTPConnection and
/// getTrackSSRC, whose result it drops).
class OV_HOST_API RTPStreamDispatcherMgr
{
public:
    /// A new handle to the one dispatcher of the process; never empty.
    static SafePointer<RTPStreamDispatcherMgr> getInstance();

    virtual ~RTPStreamDispatcherMgr() noexcept(false);
    RTPStreamDispatcherMgr(const RTPStreamDispatcherMgr&) = delete;
    RTPStreamDispatcherMgr& operator=(const RTPStreamDispatcherMgr&) = delete;

    /// Makes the packetiser of a track for a session, with its own SSRC, first sequence number and timestamp
    /// offset. It replaces what the same keys had before.
    /// \param info         the track as described; copied
    /// \param payloadSize  max bytes of RTP payload in a packet
    int initRTPBuilder(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                       const SubMediaInfo& info, int payloadSize);

    /// Sets the connection of the track to the client. The dispatcher keeps a handle of its own until
    /// deleteRTPConnection().
    int addRTPConnection(const std::string& streamKey, const std::string& sessionId,
                         const std::string& trackId, const SafePointer<IConnection>& connection);

    /// Starts sending with a key frame; a playing track continues.
    int play(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);

    /// Stops sending and keeps the state for the next play(); no packet of the track leaves after the
    /// return.
    int pause(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);

    /// Ends the track: drops packetiser and connection. No packet leaves after the return.
    int deleteRTPConnection(const std::string& streamKey, const std::string& sessionId,
                            const std::string& trackId);

    /// \param[out] ssrc  the SSRC of the track's packets, its 32 bits as an int; unchanged on failure
    int getTrackSSRC(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                     int& ssrc);

private:
    RTPStreamDispatcherMgr();

    struct Impl;
    Impl* impl_;
};
