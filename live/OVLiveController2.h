#pragma once

#include <string>

#include "hostapi/base/OVMutex.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "live/LiveAnswers.h"
#include "mediaurl/MediaUrlParam.h"
#include "support/Export.h"

class LivePresentation;

/// Serves one live unicast URL as OVLiveController does, but by one session of the host's LiveDispatcherMgr
/// for each RTSP session, and with packets as large as the path's MTU lets them be over UDP unicast. Verbs of
/// a talk-back track go to OVAudioBackDispatcherMgr.
///
/// Made by OVLiveControllerFactory2, which calls initInstance() once. Takes no lock of its own.
class OV_EXPORT OVLiveController2 : public LiveAnswers
{
public:
    OVLiveController2();
    ~OVLiveController2() noexcept(false) override;
    OVLiveController2(const OVLiveController2&) = delete;
    OVLiveController2& operator=(const OVLiveController2&) = delete;

    /// Parses the URL and builds the description. After a failure the controller cannot be used.
    /// \param thirdPlatType  number of the URL codec's factory in the registry
    /// \returns 0; the result of parseMediaUrl(), nothing else being stored then; or the result of
    ///          createMediaInfo()
    int initInstance(int thirdPlatType, const std::string& url, const DeviceInfoEx& deviceInfo,
                     const DeviceExAbility& deviceAbility, bool mediaInfoFlag);

    /// Parses a URL with a fresh codec and keeps what it names; failures are printed.
    /// \param[out] outKey  stream key on success, otherwise left as it was
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or the codec's code
    int parseMediaUrl(int thirdPlatType, const std::string& url, std::string& outKey);

    /// Has the host describe what was parsed, under its canonical URL; failures are printed.
    /// \param[out] out  the description on success
    /// \returns 0; -6 when no codec factory is registered; otherwise the factory's or MediaInfoTool's code
    int createMediaInfo(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out);

    int getMediaInfo(MediaInfo& out) override;

    /// Makes the session with its first track; further tracks join it as it is. The dispatcher's failures
    /// are printed.
    /// \returns 0; -6 for a transport kind other than 1, 2 and 3; -8 for a track that is not in the
    ///          description; otherwise the dispatcher's code
    int setup(const std::string& sessionId, const std::string& trackId,
              const SafePointer<IConnection>& connection) override;

    /// \returns the code of LiveDispatcherMgr, or of the talk-back manager for its track
    int play(const std::string& sessionId, const std::string& trackId) override;
    /// \returns the code of LiveDispatcherMgr, or of the talk-back manager for its track
    int pause(const std::string& sessionId, const std::string& trackId) override;

    /// Prints a line of success before it ends the track and whatever comes of that.
    /// \returns the dispatcher's code
    int stop(const std::string& sessionId, const std::string& trackId) override;
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc) override;

private:
    OV_INTERNAL LivePresentation presentation();

    OVMutex mutex_;  // never locked; part of the layout
    std::string mediaUrl_;
    MediaUrlParam mediaUrlParam_;
    std::string streamKey_;  // never read; part of the layout
    MediaInfo mediaInfo_;
    DeviceInfoEx deviceInfo_;
    DeviceExAbility deviceAbility_;
    std::string audioBackTrackId_;
};
