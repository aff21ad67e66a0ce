#pragma once

#include <string>

#include "hostapi/base/OVMutex.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "live/IRTSPController.h"
#include "mediaurl/MediaUrlParam.h"
#include "support/Export.h"

class LivePresentation;

/// Serves a live stream that many RTSP sessions receive from one multicast group: all sessions of a camera's
/// stream share one session of the host's LiveDispatcherMgr, whose id MulticastSessionToken derives, and are
/// members of one MulticastSessionParameter that the dispatcher keeps. The first SETUP creates both, the last
/// stop() ends both.
///
/// Created by OVMulticastLiveControlerFactory, which calls initInstance() once. Has no talk-back.
/// Threads: takes no lock; a host serialises the methods of one multicast session.
///
/// Failures are printed. With the device's own URL codec every multicast URL is camera 0, stream 0.
class OV_EXPORT OVMulticastLiveController : public IRTSPController
{
public:
    OVMulticastLiveController();
    ~OVMulticastLiveController() noexcept(false) override;
    OVMulticastLiveController(const OVMulticastLiveController&) = delete;
    OVMulticastLiveController& operator=(const OVMulticastLiveController&) = delete;

    /// Parses the URL and creates the description. After a failure the controller is unusable.
    /// \param thirdPlatType  number of the URL codec's factory in the registry
    /// \returns 0; the result of parseMediaUrl(), and nothing else is stored then; or the result of
    ///          createMediaInfo()
    int initInstance(int thirdPlatType, const std::string& url, const DeviceInfoEx& device,
                     const DeviceExAbility& ability, bool mediaInfoFlag);

    /// Parses a multicast URL with a new codec and stores its values; failures are printed.
    /// \param[out] outKey  stream key on success, otherwise unchanged
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or the codec's code
    int parseMediaUrl(int thirdPlatType, const std::string& url, std::string& outKey);

    /// Requests the description of the parsed URL from the host, under its canonical multicast URL; failures
    /// are printed.
    /// \param[out] out  the description on success
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or MediaInfoTool's code
    int createMediaInfo(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out);

    int getMediaInfo(MediaInfo& out) override;

    /// \param[out] out  camera, stream and multicast flag of the URL
    /// \returns 0
    int getSessionInfo(GeneralSessionInfo& out) override;

    /// Does nothing; 0.
    int mediaInit() override;

    /// Creates the shared session if needed, sets the track's connection there and adds the RTSP session as a
    /// member. After a failure the completed steps stay.
    /// \returns 0; -6 for a transport kind other than 1, 2 and 3; -8 for a track that is not in the
    ///          description; otherwise a code of the token or the dispatcher
    int setup(const std::string& sessionId, const std::string& trackId,
              const SafePointer<IConnection>& connection) override;

    /// Plays the shared track; nothing changes for members that receive it already.
    /// \returns 0; -8 without a shared session, when the RTSP session is not a member, or when the track was
    ///          not set up; otherwise a code of the token or the dispatcher
    int play(const std::string& sessionId, const std::string& trackId) override;

    /// Does nothing; 0.
    int setPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                     int rangeKind, bool rangeFlag) override;
    /// -100.0 and -99.0; 0.
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start,
                        double& end) override;
    /// -100.0 and -99.0 for every request; 0.
    int correctPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                         double& outStart, double& outEnd) override;

    /// Pauses the shared track if the RTSP session is the only member; otherwise does nothing, so that one
    /// viewer cannot pause the others.
    /// \returns 0; -8 without a shared session or when the RTSP session is not a member; otherwise a code of
    ///          the token or the dispatcher
    int pause(const std::string& sessionId, const std::string& trackId) override;

    /// Does nothing; 0.
    int setPauseRange(const std::string& sessionId, const std::string& trackId, double position) override;

    /// Removes the RTSP session from the members, for all its tracks. When no member is left, ends every track
    /// of the shared session and then the record; if a track cannot be ended, keeps the record, without
    /// members, and the remaining tracks.
    /// \returns 0, also when there is no shared session; otherwise a code of the token or the dispatcher
    int stop(const std::string& sessionId, const std::string& trackId) override;

    /// Always connected; 0.
    int getConnetionState(std::string sessionId, std::string trackId, bool& connected) override;
    /// Does nothing; 0.
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                 double speed) override;
    /// Does nothing.
    void setRTCPFrequence(const std::string& sessionId, const std::string& trackId, int frequency) override;

    /// \returns as play()
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc) override;

private:
    OV_INTERNAL LivePresentation presentation();

    OVMutex mutex;  // never locked; part of the layout
    std::string mediaUrl;
    MediaUrlParam mediaUrlParam;
    std::string streamKey;  // never read; part of the layout
    MediaInfo mediaInfo;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    std::string audioBackTrackId;  // never set or read; part of the layout
};
