#pragma once

#include "hostapi/audio/IMediaPlayer.h"
#include "hostapi/base/HostExport.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"

/// A device's talk-back session.
class OV_HOST_API AudioDispatcher
{
public:
    explicit AudioDispatcher(const SafePointer<IMediaPlayer>& player);
    DEVICE_OWN virtual ~AudioDispatcher() noexcept(false);
    int initRTBBuilder(const SubMediaInfo& info, int packetSize);
    int setConnection(const SafePointer<IConnection>& connection);
    int play();
    int pause();
    int stop();
    bool isPlaying();
    int getTrackSSRC(int& ssrc);
    int recvAndPlayMediaData(bool& playerFault);
    int recvAndSendRTCPData();

private:
    void* own_;
};
