#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"

/// Builds the description of a live stream or a recording from what the device sends. Used once, on one
/// thread.
class OV_HOST_API MediaInfoTool
{
public:
    MediaInfoTool();
    ~MediaInfoTool();
    MediaInfoTool(const MediaInfoTool&) = delete;
    MediaInfoTool& operator=(const MediaInfoTool&) = delete;

    /// Copied; called before the description is made.
    void setDeviceInfoEx(const DeviceInfoEx& info);
    /// Copied; called before the description is made.
    void setDeviceExAbility(const DeviceExAbility& ability);
    /// \param url  canonical URL text, kept in the description
    void setMediaUrl(const std::string& url);
    /// \param type  number of the codec that rendered the URL
    void setThirdPlatType(int type);

    /// Describes a live stream, one SubMediaInfo per track. Does not wait: the library calls it under a
    /// factory's lock, so a stream that is not described yet is only asked to become so.
    /// \param cameraId, streamId  numbers from the URL, any int
    /// \param[out] out            the description on success; otherwise unchanged
    /// \param mediaInfoFlag       true to have the audio back channel described too where the device has one
    /// \returns 0; otherwise a code of the host, which the controllers pass on
    int createMediaInfo(int cameraId, int streamId, MediaInfo& out, bool mediaInfoFlag);

    /// Describes a recording, one SubMediaInfo per track. Does not wait either.
    /// \param record    what was recorded; any numbers, as they stood in a URL
    /// \param[out] out  the description on success; otherwise unchanged
    /// \returns 0; otherwise a code of the host, which the playback controller passes on
    int createPlaybackMediaInfo(const RecordInfo& record, MediaInfo& out);

private:
    struct Impl;
    Impl* impl_;
};
