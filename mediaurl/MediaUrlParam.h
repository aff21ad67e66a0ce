#pragma once

#include <string>

#include "support/Export.h"

/// The values of a media URL: a camera, and one of its streams or an interval of its recordings. A value type;
/// no lock.
class OV_EXPORT MediaUrlParam
{
public:
    /// Empty texts, zeros, not multicast.
    MediaUrlParam();
    /// Copies every value.
    MediaUrlParam(const MediaUrlParam& other);
    /// Copies every value.
    MediaUrlParam& operator=(const MediaUrlParam& other);
    ~MediaUrlParam();

    /// URL family of the last parse: "orv/live" or "orv/playback". Set by every parse, even a failed one.
    /// \param prefix  not modified, though the reference is not const: hosts bind to this form
    void setMediaUrlPrefix(std::string& prefix);
    /// Empty before the first parse.
    std::string getMediaUrlPrefix() const;

    /// Identifier of the device. The device's own codec never writes it.
    void setDeviceId(const std::string& id);
    /// Empty unless set.
    std::string getDeviceId() const;

    /// \param id  number of the camera in the URL, any int
    void setCameraID(int id);
    /// 0 unless set.
    int getCameraID() const;

    /// Number of one of the camera's streams; live URLs only.
    void setStreamID(int id);
    /// 0 unless set.
    int getStreamID() const;

    /// Begin of the recorded interval in seconds of the recording index; playback URLs only.
    void setRecordBeginTime(double seconds);
    /// 0 unless set.
    double getRecordBeginTime() const;

    /// End of the recorded interval, likewise. May precede the begin.
    void setRecordEndTime(double seconds);
    /// 0 unless set.
    double getRecordEndTime() const;

    /// Marks a multicast session. The device's own codec never writes it.
    void setMulticastFlag(bool multicast);
    /// False unless set.
    bool getMulticastFlag() const;

private:
    std::string mediaUrlPrefix;
    std::string deviceId;
    int cameraID;
    int streamID;
    double recordBeginTime;
    double recordEndTime;
    bool multicastFlag;
};
