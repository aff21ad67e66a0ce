#pragma once

/// What a session shows: camera, stream, and whether it is shared by multicast. A plain value.
class GeneralSessionInfo
{
public:
    /// \param id  number of the camera, as in the URL
    void setCameraID(int id)
    {
        cameraId_ = id;
    }

    /// 0 unless set.
    int getCameraID() const
    {
        return cameraId_;
    }

    /// \param id  number of the camera's stream, as in the URL
    void setStreamID(int id)
    {
        streamId_ = id;
    }

    /// 0 unless set.
    int getStreamID() const
    {
        return streamId_;
    }

    /// \param flag  true when all viewers share one stream of packets
    void setIsMulticastFlag(bool flag)
    {
        multicast_ = flag;
    }

    /// False unless set.
    bool getIsMulticastFlag() const
    {
        return multicast_;
    }

private:
    int cameraId_ = 0;
    int streamId_ = 0;
    bool multicast_ = false;
};
