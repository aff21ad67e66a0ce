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

/// Serves one live unicast URL: its sessions' methods go to the host's RTPStreamDispatcherMgr under the key
/// "<camera>/<stream>", and those of a talk-back track to OVAudioBackDispatcherMgr.
///
/// Created by OVLiveControllerFactory, which calls initInstance() once. Takes no lock of its own.
class OV_EXPORT OVLiveController : public IRTSPController
{
public:
    OVLiveController();
    ~OVLiveController() noexcept(false) override;
    OVLiveController(const OVLiveController&) = delete;
    OVLiveController& operator=(const OVLiveController&) = delete;

    /// Parses the URL and creates the description. After a failure the controller is unusable.
    /// \param thirdPlatType  number of the URL codec's factory in the registry
    /// \returns 0; the result of parseMediaUrl(), and nothing else is stored then; or the result of
    ///          createMediaInfo()
    int initInstance(int thirdPlatType, const std::string& url, const DeviceInfoEx& device,
                     const DeviceExAbility& ability, bool mediaInfoFlag);

    /// Parses a URL with a new codec and stores its values; failures are printed.
    /// \param[out] outKey  stream key on success, otherwise unchanged
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or the codec's code
    int parseMediaUrl(int thirdPlatType, const std::string& url, std::string& outKey);

    /// Requests the description of the parsed URL from the host, under its canonical URL; failures are printed.
    /// \param[out] out  the description on success
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or MediaInfoTool's code
    int createMediaInfo(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out);

    int getMediaInfo(MediaInfo& out) override;
    /// Does nothing; 0.
    int mediaInit() override;

    /// \returns 0; -6 for a transport kind other than 1, 2 and 3; -8 for a track that is not in the
    ///          description; otherwise the dispatcher's code
    int setup(const std::string& sessionId, const std::string& trackId,
              const SafePointer<IConnection>& connection) override;

    /// \returns the code of RTPStreamDispatcherMgr, or of the talk-back manager for its track
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

    /// \returns the code of RTPStreamDispatcherMgr, or of the talk-back manager for its track
    int pause(const std::string& sessionId, const std::string& trackId) override;
    /// Does nothing; 0.
    int setPauseRange(const std::string& sessionId, const std::string& trackId, double position) override;

    /// \returns 0 whatever the live dispatcher returns; the talk-back manager's code for its track
    int stop(const std::string& sessionId, const std::string& trackId) override;

    /// Always connected; 0.
    int getConnetionState(std::string sessionId, std::string trackId, bool& connected) override;
    /// Does nothing; 0.
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                 double speed) override;
    /// Does nothing.
    void setRTCPFrequence(const std::string& sessionId, const std::string& trackId, int frequency) override;

    /// \returns 0 whatever the live dispatcher returns; the talk-back manager's code for its track
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc) override;

private:
    OV_INTERNAL LivePresentation presentation();

    OVMutex mutex;  // never locked; part of the layout
    std::string mediaUrl;
    std::string streamKey;
    MediaInfo mediaInfo;
    MediaUrlParam mediaUrlParam;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    std::string audioBackTrackId;
};
