#pragma once

#include <string>

#include "support/Export.h"

/// What a media URL names: a camera, one of its streams or an interval of its recordings. A plain value,
/// copied whole; no lock.
class OV_EXPORT MediaUrlParam
{
public:
    /// Empty texts, zeros, not multicast.
    MediaUrlParam();
    MediaUrlParam(const MediaUrlParam& other);
    MediaUrlParam& operator=(const MediaUrlParam& other);
    ~MediaUrlParam();

    /// URL family that the last parse looked for: "orv/live" or "orv/playback". Set by every parse, also by
    /// one that fails.
    /// \param prefix  not modified, though the reference is not const: hosts bind to this form
    void setMediaUrlPrefix(std::string& prefix);
    std::string getMediaUrlPrefix() const;

    /// Identifier of the device. The device's own codec never writes it.
    void setDeviceId(const std::string& deviceId);
    std::string getDeviceId() const;

    void setCameraID(int cameraID);
    int getCameraID() const;

    /// Number of one of the camera's streams; live URLs only.
    void setStreamID(int streamID);
    int getStreamID() const;

    /// Begin of the recorded interval in seconds of the recording index; playback URLs only.
    void setRecordBeginTime(double seconds);
    double getRecordBeginTime() const;

    /// End of the recorded interval, likewise. May lie before the begin.
    void setRecordEndTime(double seconds);
    double getRecordEndTime() const;

    /// Marks a multicast session. The device's own codec never writes it.
    void setMulticastFlag(bool multicast);
    bool getMulticastFlag() const;

private:
    std::string mediaUrlPrefix_;
    std::string deviceId_;
    int cameraID_;
    int streamID_;
    double recordBeginTime_;
    double recordEndTime_;
    bool multicastFlag_;
};
