#pragma once
// Tested by tests/live/OVLiveController_test.cpp, tests/playback/OVPlaybackController_test.cpp.

#include <string>

#include "hostapi/description/GeneralSessionInfo.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Serves one RTSP URL: describes it and carries the methods of its sessions to the host's dispatchers.
///
/// Made by an IRTSPControllerFactory and held through SafePointer<IRTSPController>. A session id (the RTSP
/// session identifier) and a track id (the track's name in the description) are texts that the host chooses.
/// Results: 0 on success, otherwise a negative code: -6 for an input that cannot be used, -8 for what was not
/// found, or a code of the host's dispatchers, passed on unchanged.
///
/// Requires: the host calls stop() for every track that was set up before it drops its handle; the destructor
/// calls no dispatcher.
/// Threads: the host serialises the methods of one session.
class OV_EXPORT IRTSPController
{
public:
    virtual ~IRTSPController() noexcept(false);

    /// \param[out] out  a copy of the description, one track description per track
    virtual int getMediaInfo(MediaInfo& out) = 0;

    /// \param[out] out  what the session serves. Here it is left as it was.
    virtual int getSessionInfo(GeneralSessionInfo& out);

    /// Between making and the first setup(). Does nothing in the controllers here; 0.
    virtual int mediaInit() = 0;

    /// Sets a track up for a session, with the transport to the client.
    /// \throws OVRuntimeError when `connection` is empty
    virtual int setup(const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection) = 0;

    /// Starts a track that was set up, or lets a paused one go on.
    /// \returns 0 or the dispatcher's code
    virtual int play(const std::string& sessionId, const std::string& trackId) = 0;

    /// \param start, end  seconds from the begin of the recording; playback only, as the further arguments
    virtual int setPlayRange(const std::string& sessionId, const std::string& trackId, double start,
                             double end, int rangeKind, bool rangeFlag) = 0;

    /// \param[out] start, end  the range that plays now; -100.0 and -99.0 for a live stream
    virtual int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start,
                                double& end) = 0;

    /// Fits a range that a client asks for to what there is.
    /// \param[out] outStart, outEnd  the range to play; -100.0 and -99.0 for a live stream
    virtual int correctPlayRange(const std::string& sessionId, const std::string& trackId, double start,
                                 double end, double& outStart, double& outEnd) = 0;

    /// \param[out] out  the track's next packet. Here it is left as it was.
    virtual int getCurRTPPacketInfo(const std::string& sessionId, const std::string& trackId,
                                    RTPPacketInfo& out);

    /// Stops the track's packets until the next play(); the track stays set up.
    /// \returns 0 or the dispatcher's code
    virtual int pause(const std::string& sessionId, const std::string& trackId) = 0;

    /// Lets the track pause by itself at an instant.
    /// \param position  seconds from the begin of the recording; playback only
    virtual int setPauseRange(const std::string& sessionId, const std::string& trackId, double position) = 0;

    /// Ends the track for the session.
    virtual int stop(const std::string& sessionId, const std::string& trackId) = 0;

    /// The name is spelt so: hosts bind to it.
    virtual int getConnetionState(std::string sessionId, std::string trackId, bool& connected) = 0;

    /// Changes how fast a recording plays from the next play() on; playback only.
    /// \param scale  media time a second of the client's time: 2 is double speed, negative is backwards
    /// \param speed  how fast packets are sent, compared with real time
    virtual int setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                         double speed) = 0;

    /// The name is spelt so: hosts bind to it.
    virtual void setRTCPFrequence(const std::string& sessionId, const std::string& trackId,
                                  int frequency) = 0;

    /// \param[out] ssrc  SSRC of the track's packets, its 32 bits as an int
    virtual int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc) = 0;
};
