#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "hostapi/device/MTUParam.h"
#include "hostapi/playback/IMediaSource.h"
#include "support/SafePointer.h"

/// A device's dispatch of one recording.
class OV_HOST_API RTPPlayBackDispacher
{
public:
    RTPPlayBackDispacher();
    DEVICE_OWN virtual ~RTPPlayBackDispacher() noexcept(false);
    void setMediaSource(const SafePointer<IMediaSource>& source);
    void setTransferMixStreamFlag(bool mix);
    void setRTCPTimeout(int seconds);
    void setRTCPFrequence(int seconds);
    void setFramePacketMode(bool oneFramePerPacket);
    int start();
    MTUParam& getMTUParam();
    int initRTPBuilder(const std::string& sessionId, const std::string& trackId, const SubMediaInfo& info,
                       int payloadSize);
    int addSessionConnection(const std::string& sessionId, const std::string& trackId,
                             const SafePointer<IConnection>& connection);
    int play(const std::string& sessionId, const std::string& trackId);
    int pause(const std::string& sessionId, const std::string& trackId);
    int setPauseRange(const std::string& trackId, double instant);
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale, double speed);
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start, double& end);
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc);
    int getConnectionState(std::string sessionId, std::string trackId, bool& connected);
    int deleteSessionConnection(const std::string& sessionId, const std::string& trackId);

private:
    SafePointer<IMediaSource>* source_;
};
