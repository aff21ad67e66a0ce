#pragma once

#include <string>

#include "hostapi/base/OVMutex.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "hostapi/device/IConnection.h"
#include "hostapi/playback/RTPPlayBackDispacher.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// One recording that is played on a dispatcher of its own, with at most two tracks.
///
/// Calling order: init() once and setMediaInfo(), then setup() of each track, then the other operations. The
/// session records which of the two tracks plays; play() of a playing track and pause() of one that does not
/// play succeed without reaching the dispatcher. The destructor releases the dispatcher without notifying it.
///
/// Session ids (RTSP session identifiers) and track ids (names in the description) are texts that the host
/// chooses. Results: 0 on success, -6 and -8 as documented, otherwise a code of the dispatcher.
/// Threads: play(), pause() and stop() hold the session's lock while they call the dispatcher. The others rely
/// on the dispatcher's own; init() and setMediaInfo() must not run concurrently with any other operation.
class OV_EXPORT OVPlayBack
{
public:
    /// With a new dispatcher that is not started, and no track playing.
    OVPlayBack();
    virtual ~OVPlayBack() noexcept(false);
    OVPlayBack(const OVPlayBack&) = delete;
    OVPlayBack& operator=(const OVPlayBack&) = delete;

    /// Creates the source of the recording, passes it to the dispatcher and starts the dispatcher, with sender
    /// reports every 5 seconds and a client timeout of 60. A failed start is printed; the settings stay.
    /// \param device, ability  of the device that recorded; for the source
    /// \param platType    number of the URL codec's factory
    /// \param recordBeginTime, recordEndTime  the interval in whole seconds of the recording index's time;
    ///                         the record gets their lower 32 bits, unsigned
    /// \returns 0 or the code of the dispatcher's start()
    int init(const DeviceInfoEx& device, const DeviceExAbility& ability, int platType, int cameraId,
             long recordBeginTime, long recordEndTime);

    /// \param info  the description that setup() finds tracks in; copied
    void setMediaInfo(const MediaInfo& info);

    /// Creates a track's packetiser and sets its connection to the client.
    /// \returns 0; -6 for a transport kind other than 1, 2 and 3; -8 for a track that is not in the
    ///          description; otherwise the dispatcher's code
    /// \throws OVRuntimeError when `connection` is empty
    int setup(const std::string& sessionId, const std::string& trackId,
              const SafePointer<IConnection>& connection);

    /// \returns 0; the dispatcher's code, and nothing is changed then; -8 for a track that is neither of the
    ///          two, after the dispatcher has played it
    int play(const std::string& sessionId, const std::string& trackId);
    /// As play().
    int pause(const std::string& sessionId, const std::string& trackId);

    /// Ends the track, whatever the dispatcher returns.
    /// \returns 0; -8 for a track that is neither of the two, and nothing is done then
    int stop(const std::string& sessionId, const std::string& trackId);

    /// \param[out] connected  false when the client is gone
    int getConnectionState(std::string sessionId, std::string trackId, bool& connected);

    /// \param scale, speed  as for RTPPlayBackDispacher::setSpeed()
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale, double speed);

    /// \param[out] start, end  seconds from the start of the recording
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start, double& end);

    /// \param[out] ssrc  SSRC of the track's packets, its 32 bits as an int
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc);

    /// \param position  seconds from the start of the recording; applies to the track in every session
    int setPauseRange(const std::string& sessionId, const std::string& trackId, double position);

    /// \param seconds  interval of sender reports, for every track
    void setRTCPFrequence(const std::string& sessionId, const std::string& trackId, int seconds);

private:
    OV_INTERNAL bool* playingFlagOf(const std::string& trackId);

    OVMutex mutex;
    DeviceInfoEx deviceInfo;        // never filled; part of the layout
    DeviceExAbility deviceAbility;  // likewise
    MediaInfo mediaInfo;
    int thirdPlatType;
    SafePointer<RTPPlayBackDispacher> dispatcher;
    bool firstTrackPlaying;
    bool secondTrackPlaying;
    std::string firstTrackId;
    std::string secondTrackId;
};
