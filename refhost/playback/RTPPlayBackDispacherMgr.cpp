#include "hostapi/playback/RTPPlayBackDispacherMgr.h"

#include "refhost/base/HostStatus.h"

using namespace refhost;

// This host plays no recording yet: there is no footage and every track is unknown.
struct RTPPlayBackDispacherMgr::Impl
{
};

RTPPlayBackDispacherMgr::RTPPlayBackDispacherMgr() : impl_(nullptr) {}

RTPPlayBackDispacherMgr::~RTPPlayBackDispacherMgr() noexcept(false) = default;

SafePointer<RTPPlayBackDispacherMgr> RTPPlayBackDispacherMgr::getInstance()
{
    static const SafePointer<RTPPlayBackDispacherMgr> instance(new RTPPlayBackDispacherMgr);
    return instance;
}

int RTPPlayBackDispacherMgr::setMediaInfo(const MediaInfo&)
{
    return hostRecordingUnknown;
}

int RTPPlayBackDispacherMgr::initDispatcher(const std::string&, const DeviceInfoEx&, const DeviceExAbility&,
                                            const RecordInfo&)
{
    return hostRecordingUnknown;
}

int RTPPlayBackDispacherMgr::setup(const std::string&, const std::string&, const SafePointer<IConnection>&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::play(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::setPlayRange(const std::string&, const std::string&, double, double, int, bool)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::getCurPlayRange(const std::string&, const std::string&, double&, double&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::getCurRTPPacketInfo(const std::string&, const std::string&, RTPPacketInfo&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::pause(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::setPauseRange(const std::string&, const std::string&, double)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::setSpeed(const std::string&, const std::string&, double, double)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::getTrackSSRC(const std::string&, const std::string&, int&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::getConnectionState(std::string, std::string, bool&)
{
    return hostTrackUnknown;
}

int RTPPlayBackDispacherMgr::stop(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}
