#pragma once

#include "hostapi/audio/IMediaPlayer.h"
#include "hostapi/base/HostExport.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"

/// One talk-back session: receives a client's RTP audio, plays it on the shared output and answers with RTCP.
///
/// Held through SafePointer<AudioDispatcher> by the talk-back manager, which calls it under its own lock, so
/// that no two operations of one dispatcher run at once. No operation may block: the worker serves every
/// session in turn.
class OV_HOST_API AudioDispatcher
{
public:
    /// \param player  the device's output; may be an empty handle, which must not be copied
    explicit AudioDispatcher(const SafePointer<IMediaPlayer>& player);
    virtual ~AudioDispatcher() noexcept(false);
    AudioDispatcher(const AudioDispatcher&) = delete;
    AudioDispatcher& operator=(const AudioDispatcher&) = delete;

    /// Prepares the reception of a track.
    /// \param info        the back-channel track as described; copied
    /// \param packetSize  max bytes of RTP payload in a packet
    /// \returns 0 on success; any other code refuses the session
    int initRTBBuilder(const SubMediaInfo& info, int packetSize);

    /// Sets the connection to the client; the dispatcher keeps a handle of its own.
    /// \returns 0 on success, otherwise a code of the host
    int setConnection(const SafePointer<IConnection>& connection);

    /// Starts to play received audio.
    /// \returns 0 on success, otherwise a code of the host
    int play();
    /// Plays nothing until the next play(); the client stays connected.
    /// \returns 0 on success, otherwise a code of the host
    int pause();
    /// Ends the session; the manager drops its handle afterwards.
    /// \returns 0 on success, otherwise a code of the host
    int stop();

    /// True between a play() that took effect and the next pause() or stop().
    bool isPlaying();

    /// \param[out] ssrc  SSRC of the reports sent to the client, its 32 bits as an int
    /// \returns 0 on success, otherwise a code of the host, and `ssrc` is left as it was
    int getTrackSSRC(int& ssrc);

    /// Receives pending packets and plays them.
    /// \param[in,out] playerFault  set to true when the output failed; never set to false
    /// \returns 0; statusPlayerUnusable, audioDispatcherIdle or audioDispatcherAgain (support/StatusCode.h)
    ///          when there was nothing to do this time; any other code ends the session
    int recvAndPlayMediaData(bool& playerFault);

    /// Receives pending RTCP and sends due reports. Results as above.
    int recvAndSendRTCPData();

private:
    struct Impl;
    Impl* impl_;
};
