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

/// Serves a live stream that many RTSP sessions watch by one delivery to a multicast group: all sessions of a
/// camera's stream share one session of the host's LiveDispatcherMgr, whose id MulticastSessionToken derives,
/// and are members of one MulticastSessionParameter that the dispatcher keeps. The first SETUP makes both,
/// the last stop() ends both.
///
/// Made by OVMulticastLiveControlerFactory, which calls initInstance() once. Takes no lock of its own: a host
/// lets the methods of one multicast session follow one another. Has no talk-back.
///
/// Failures are printed. With the device's own URL codec every multicast URL is camera 0, stream 0.
class OV_EXPORT OVMulticastLiveController : public IRTSPController
{
public:
    OVMulticastLiveController();
    ~OVMulticastLiveController() noexcept(false) override;
    OVMulticastLiveController(const OVMulticastLiveController&) = delete;
    OVMulticastLiveController& operator=(const OVMulticastLiveController&) = delete;

    /// Parses the URL and builds the description. After a failure the controller cannot be used.
    /// \param thirdPlatType  number of the URL codec's factory in the registry
    /// \returns 0; the result of parseMediaUrl(), nothing else being stored then; or the result of
    ///          createMediaInfo()
    int initInstance(int thirdPlatType, const std::string& url, const DeviceInfoEx& device,
                     const DeviceExAbility& ability, bool mediaInfoFlag);

    /// Parses a multicast URL with a fresh codec and keeps what it names; failures are printed.
    /// \param[out] outKey  stream key on success, otherwise left as it was
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or the codec's code
    int parseMediaUrl(int thirdPlatType, const std::string& url, std::string& outKey);

    /// Has the host describe what was parsed, under its canonical multicast URL; failures are printed.
    /// \param[out] out  the description on success
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or MediaInfoTool's code
    int createMediaInfo(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out);

    int getMediaInfo(MediaInfo& out) override;

    /// \param[out] out  camera, stream and multicast flag as the URL gave them
    /// \returns 0
    int getSessionInfo(GeneralSessionInfo& out) override;

    /// Does nothing; 0.
    int mediaInit() override;

    /// Makes the shared session where there is none, gives the track its connection there and makes the RTSP
    /// session a member. After a failure what was done so far stays.
    /// \returns 0; -6 for a transport kind other than 1, 2 and 3; -8 for a track that is not in the
    ///          description; otherwise a code of the token or the dispatcher
    int setup(const std::string& sessionId, const std::string& trackId,
              const SafePointer<IConnection>& connection) override;

    /// Plays the shared track; for the members that watch already nothing changes.
    /// \returns 0; -8 when there is no shared session, or the RTSP session is no member or the track was not
    ///          set up; otherwise a code of the token or the dispatcher
    int play(const std::string& sessionId, const std::string& trackId) override;

    /// Does nothing; 0.
    int setPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                     int rangeKind, bool rangeFlag) override;
    /// -100.0 and -99.0; 0.
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start,
                        double& end) override;
    /// -100.0 and -99.0 whatever was asked for; 0.
    int correctPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                         double& outStart, double& outEnd) override;

    /// Pauses the shared track when the RTSP session is the only member; otherwise it does nothing, so that
    /// one viewer cannot pause the others.
    /// \returns 0; -8 when there is no shared session or the RTSP session is no member; otherwise a code of
    ///          the token or the dispatcher
    int pause(const std::string& sessionId, const std::string& trackId) override;

    /// Does nothing; 0.
    int setPauseRange(const std::string& sessionId, const std::string& trackId, double position) override;

    /// Removes the RTSP session from the members, for all its tracks. When no member is left it ends every
    /// track of the shared session, then the record; at the first track that cannot be ended it stops and
    /// keeps the record, without members.
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
