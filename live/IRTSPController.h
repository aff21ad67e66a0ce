#pragma once
// Tested by tests/live/OVLiveController_test.cpp, tests/playback/OVPlaybackController_test.cpp.

#include <string>

#include "hostapi/description/GeneralSessionInfo.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Serves one RTSP URL: describes it and passes the methods of its sessions to the host's dispatchers.
///
/// Created by an IRTSPControllerFactory and held by SafePointer<IRTSPController>. Session ids (RTSP session
/// identifiers) and track ids (names in the description) are texts that the host chooses. Results: 0 on
/// success, otherwise a negative code: -6 for an unusable input, -8 for something that was not found, or a
/// code of the host's dispatchers, unchanged.
///
/// Requires: the host calls stop() for every track that was set up before it drops its handle; a destroyed
/// controller does not notify the dispatchers.
/// Threads: the host serialises the methods of one session.
class OV_EXPORT IRTSPController
{
public:
    virtual ~IRTSPController() noexcept(false);

    /// \param[out] out  a copy of the description, one track description per track
    virtual int getMediaInfo(MediaInfo& out) = 0;

    /// \param[out] out  camera, stream and multicast flag of the session. Unchanged in this implementation.
    virtual int getSessionInfo(GeneralSessionInfo& out);

    /// Called between creation and the first setup(). Does nothing in this library's controllers; 0.
    virtual int mediaInit() = 0;

    /// Sets a track up for a session.
    /// \param connection  transport to the client
    /// \throws OVRuntimeError when `connection` is empty
    virtual int setup(const std::string& sessionId, const std::string& trackId,
                      const SafePointer<IConnection>& connection) = 0;

    /// Starts a track that was set up, or resumes a paused one.
    /// \returns 0 or the dispatcher's code
    virtual int play(const std::string& sessionId, const std::string& trackId) = 0;

    /// Playback only.
    /// \param start, end  seconds from the start of the recording
    virtual int setPlayRange(const std::string& sessionId, const std::string& trackId, double start,
                             double end, int rangeKind, bool rangeFlag) = 0;

    /// \param[out] start, end  the range being played; -100.0 and -99.0 for a live stream
    virtual int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start,
                                double& end) = 0;

    /// Fits the range that a client requests to the available media.
    /// \param[out] outStart, outEnd  the range to play; -100.0 and -99.0 for a live stream
    virtual int correctPlayRange(const std::string& sessionId, const std::string& trackId, double start,
                                 double end, double& outStart, double& outEnd) = 0;

    /// \param[out] out  the track's next packet. Unchanged in this implementation.
    virtual int getCurRTPPacketInfo(const std::string& sessionId, const std::string& trackId,
                                    RTPPacketInfo& out);

    /// Stops sending until the next play(); the track stays set up.
    /// \returns 0 or the dispatcher's code
    virtual int pause(const std::string& sessionId, const std::string& trackId) = 0;

    /// Makes the track pause by itself at an instant; playback only.
    /// \param position  seconds from the start of the recording
    virtual int setPauseRange(const std::string& sessionId, const std::string& trackId, double position) = 0;

    /// Ends the track for the session.
    virtual int stop(const std::string& sessionId, const std::string& trackId) = 0;

    /// The name is spelt so: hosts bind to it.
    virtual int getConnetionState(std::string sessionId, std::string trackId, bool& connected) = 0;

    /// Changes the speed of playback from the next play() on; playback only.
    /// \param scale  ratio of media time to the client's time: 2 is double speed, negative is backwards
    /// \param speed  rate at which packets are sent, as a multiple of real time
    virtual int setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                         double speed) = 0;

    /// The name is spelt so: hosts bind to it.
    virtual void setRTCPFrequence(const std::string& sessionId, const std::string& trackId,
                                  int frequency) = 0;

    /// \param[out] ssrc  SSRC of the track's packets, its 32 bits as an int
    virtual int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc) = 0;
};
