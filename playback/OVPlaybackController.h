#pragma once

#include <string>

#include "hostapi/base/OVMutex.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "live/IRTSPController.h"
#include "mediaurl/MediaUrlParam.h"
#include "playback/OVPlayBack.h"
#include "support/Export.h"

/// Serves one playback URL: its sessions' methods go to the host's RTPPlayBackDispacherMgr, which finds each
/// session by its id.
///
/// Created by OVPlaybackControllerFactory, which calls initInstance() once. Instants are seconds from the start
/// of the recording.
/// Threads: initInstance(), getMediaInfo() and correctPlayRange() take the controller's lock; the others rely
/// on the dispatcher's own.
class OV_EXPORT OVPlaybackController : public IRTSPController
{
public:
    OVPlaybackController();
    ~OVPlaybackController() noexcept(false) override;
    OVPlaybackController(const OVPlaybackController&) = delete;
    OVPlaybackController& operator=(const OVPlaybackController&) = delete;

    /// Parses the URL and creates the description. After a failure the controller is unusable; values stored
    /// before the failure stay.
    /// \param platType  number of the URL codec's factory in the registry
    /// \returns 0; -8 for an empty URL, and nothing is stored then; or the result of parseMediaUrl() or
    ///          createMediaInfo()
    int initInstance(int platType, const std::string& url, const DeviceInfoEx& device,
                     const DeviceExAbility& ability);

    /// Parses a URL with a new codec and stores its values; failures are printed. A step of initInstance(), as
    /// is createMediaInfo(): neither takes the lock.
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or the codec's code
    int parseMediaUrl(const std::string& url);

    /// Requests the description of the parsed URL from the host, under its canonical URL; failures are printed.
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or MediaInfoTool's code
    int createMediaInfo();

    int getMediaInfo(MediaInfo& out) override;
    /// Does nothing; 0.
    int mediaInit() override;
    int setup(const std::string& sessionId, const std::string& trackId,
              const SafePointer<IConnection>& connection) override;
    /// \returns the dispatcher's code
    int play(const std::string& sessionId, const std::string& trackId) override;

    /// \param start, end            as returned by correctPlayRange()
    /// \param rangeKind, rangeFlag  passed on unchanged
    int setPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                     int rangeKind, bool rangeFlag) override;
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start,
                        double& end) override;

    /// Fits a range to the recording's length in whole seconds; a bound outside becomes the recording's own. An
    /// end equal to the length stays; a start equal to the length becomes 0, because nothing follows it.
    /// Depends on the URL only.
    /// \returns 0
    int correctPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                         double& outStart, double& outEnd) override;
    int getCurRTPPacketInfo(const std::string& sessionId, const std::string& trackId,
                            RTPPacketInfo& out) override;
    /// \returns the dispatcher's code
    int pause(const std::string& sessionId, const std::string& trackId) override;
    /// \param position  seconds from the start of the recording
    /// \returns the dispatcher's code
    int setPauseRange(const std::string& sessionId, const std::string& trackId, double position) override;
    int stop(const std::string& sessionId, const std::string& trackId) override;
    int getConnetionState(std::string sessionId, std::string trackId, bool& connected) override;
    /// \param scale, speed  passed on unchanged
    /// \returns the dispatcher's code
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                 double speed) override;
    /// Does nothing.
    void setRTCPFrequence(const std::string& sessionId, const std::string& trackId, int frequency) override;
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc) override;

private:
    OV_INTERNAL RecordInfo recordInfo();

    OVMutex mutex;
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    MediaInfo mediaInfo;
    int thirdPlatType;
    MediaUrlParam mediaUrlParam;
    std::string recordKey;  // "<camera>_<begin>_<end>"; part of the layout
    OVPlayBack playBack;    // likewise: never used
};
