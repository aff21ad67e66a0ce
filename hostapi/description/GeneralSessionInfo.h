#pragma once

/// What a session shows: camera, stream, and whether it is shared by multicast. A plain value.
class GeneralSessionInfo
{
public:
    void setCameraID(int id)
    {
        cameraId_ = id;
    }

    int getCameraID() const
    {
        return cameraId_;
    }

    void setStreamID(int id)
    {
        streamId_ = id;
    }

    int getStreamID() const
    {
        return streamId_;
    }

    void setIsMulticastFlag(bool flag)
    {
        multicast_ = flag;
    }

    bool getIsMulticastFlag() const
    {
        return multicast_;
    }

private:
    int cameraId_ = 0;
    int streamId_ = 0;
    bool multicast_ = false;
};
