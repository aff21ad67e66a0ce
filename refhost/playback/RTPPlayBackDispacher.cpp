#include "hostapi/playback/RTPPlayBackDispacher.h"

#include "refhost/base/HostStatus.h"

using namespace refhost;

// This host plays no recording yet: every source is without footage and every track is unknown.
struct RTPPlayBackDispacher::Impl
{
    MTUParam mtu;
};

RTPPlayBackDispacher::RTPPlayBackDispacher() : impl_(new Impl)
{
    impl_->mtu.setMTUValue(1440);
}

RTPPlayBackDispacher::~RTPPlayBackDispacher() noexcept(false)
{
    delete impl_;
}

void RTPPlayBackDispacher::setMediaSource(const SafePointer<IMediaSource>&) {}

void RTPPlayBackDispacher::setTransferMixStreamFlag(bool) {}

void RTPPlayBackDispacher::setRTCPTimeout(int) {}

void RTPPlayBackDispacher::setRTCPFrequence(int) {}

void RTPPlayBackDispacher::setFramePacketMode(bool) {}

int RTPPlayBackDispacher::start()
{
    return hostRecordingUnknown;
}

MTUParam& RTPPlayBackDispacher::getMTUParam()
{
    return impl_->mtu;
}

int RTPPlayBackDispacher::initRTPBuilder(const std::string&, const std::string&, const SubMediaInfo&, int)
{
    return hostRecordingUnknown;
}

int RTPPlayBackDispacher::addSessionConnection(const std::string&, const std::string&,
                                               const SafePointer<IConnection>&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacher::play(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacher::pause(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacher::setPauseRange(const std::string&, double)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacher::setSpeed(const std::string&, const std::string&, double, double)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacher::getCurPlayRange(const std::string&, const std::string&, double&, double&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacher::getTrackSSRC(const std::string&, const std::string&, int&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacher::getConnectionState(std::string, std::string, bool&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacher::deleteSessionConnection(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}
