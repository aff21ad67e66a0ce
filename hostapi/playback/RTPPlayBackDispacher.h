#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "hostapi/device/MTUParam.h"
#include "hostapi/playback/IMediaSource.h"
#include "support/SafePointer.h"

/// The host's dispatch of one recording: packets of a media source to the connections of a session's tracks.
///
/// Made and held by an OVPlayBack through SafePointer<RTPPlayBackDispacher>; its end ends every track. The
/// settings come first, in any order, then start(), then the operations of tracks. A track is named by
/// session id and track id. Instants are seconds from the start of the recording. Results: 0 on success,
/// otherwise a code of the host. Threads: any; does its own locking.
class OV_HOST_API RTPPlayBackDispacher
{
public:
    RTPPlayBackDispacher();
    virtual ~RTPPlayBackDispacher() noexcept(false);
    RTPPlayBackDispacher(const RTPPlayBackDispacher&) = delete;
    RTPPlayBackDispacher& operator=(const RTPPlayBackDispacher&) = delete;

    // --- settings -----------------------------------------------------------------------------------------

    /// \param source  what is played; never empty. The caller may let go of its handle.
    void setMediaSource(const SafePointer<IMediaSource>& source);

    /// \param mix  true to send video and audio as one stream; false: a track for each
    void setTransferMixStreamFlag(bool mix);

    /// \param seconds  a client without activity for this time is gone
    void setRTCPTimeout(int seconds);

    /// \param seconds  interval of sender reports of a track; from the next report on
    void setRTCPFrequence(int seconds);

    /// \param oneFramePerPacket  true to send each frame in a packet of its own, whatever its size
    void setFramePacketMode(bool oneFramePerPacket);

    /// Makes the dispatcher ready for tracks, from the source that it was given.
    /// \returns 0; otherwise a code of the host, as without a source, and tracks are refused
    int start();

    /// The MTU of the network path. OVPlayBack reads it at each SETUP over UDP unicast and
    /// subtracts 76 bytes for all headers.
    MTUParam& getMTUParam();

    // --- tracks -------------------------------------------------------------------------------------------

    /// Makes the packetiser of a track for a session, with its own SSRC, first sequence number and timestamp
    /// offset. It replaces what the same ids had before.
    /// \param info         the track as described; copied
    /// \param payloadSize  max bytes of RTP payload in a packet
    int initRTPBuilder(const std::string& sessionId, const std::string& trackId, const SubMediaInfo& info,
                       int payloadSize);

    /// Sets the connection of the track to the client. The dispatcher keeps a handle of its own until
    /// deleteSessionConnection().
    int addSessionConnection(const std::string& sessionId, const std::string& trackId,
                             const SafePointer<IConnection>& connection);

    /// Starts sending where the recording stands, initially at its start; a playing track continues.
    int play(const std::string& sessionId, const std::string& trackId);

    /// Stops sending and keeps the place; no packet of the track leaves after the return.
    int pause(const std::string& sessionId, const std::string& trackId);

    /// \param trackId  of the track in whichever session
    /// \param instant  where the track pauses by itself
    int setPauseRange(const std::string& trackId, double instant);

    /// \param scale  how fast media time runs, 1 being natural
    /// \param speed  how fast it is delivered, 1 being as it plays
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale, double speed);

    /// \param[out] start, end  what plays from now on; left as they were on failure
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start, double& end);

    /// \param[out] ssrc  the SSRC of the track's packets, its 32 bits as an int; unchanged on failure
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc);

    /// \param[out] connected  false when the client is gone; unchanged on failure
    int getConnectionState(std::string sessionId, std::string trackId, bool& connected);

    /// Ends the track: drops packetiser and connection. No packet leaves after the return.
    int deleteSessionConnection(const std::string& sessionId, const std::string& trackId);

private:
    struct Impl;
    Impl* impl_;
};
