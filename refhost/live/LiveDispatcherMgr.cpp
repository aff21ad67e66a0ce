#include "hostapi/live/LiveDispatcherMgr.h"

#include "refhost/base/HostStatus.h"
#include "refhost/live/LiveSessionDispatcher.h"
#include "refhost/live/MulticastRecords.h"
#include "refhost/media/PacketSize.h"

using refhost::LiveSessionDispatcher;
using refhost::MulticastRecords;

struct LiveDispatcherMgr::Impl
{
    MTUParam mtu;
};

LiveDispatcherMgr::LiveDispatcherMgr() : impl_(new Impl)
{
    impl_->mtu.setMTUValue(refhost::PacketSize::mtu);
}

LiveDispatcherMgr::~LiveDispatcherMgr() noexcept(false)
{
    delete impl_;
}

SafePointer<LiveDispatcherMgr> LiveDispatcherMgr::getInstance()
{
    static const SafePointer<LiveDispatcherMgr> instance(new LiveDispatcherMgr);
    return instance;
}

MTUParam& LiveDispatcherMgr::getMTUParam()
{
    return impl_->mtu;
}

bool LiveDispatcherMgr::findSession(const std::string& sessionId)
{
    return LiveSessionDispatcher::instance().has(sessionId);
}

int LiveDispatcherMgr::initSession(const std::string& sessionId, int cameraId, int streamId,
                                   const MediaInfo& info, int payloadSize)
{
    return LiveSessionDispatcher::instance().initSession(sessionId, cameraId, streamId, info, payloadSize);
}

int LiveDispatcherMgr::addSessionConnection(const std::string& sessionId, const std::string& trackId,
                                            const SafePointer<IConnection>& connection)
{
    return LiveSessionDispatcher::instance().addConnection(sessionId, trackId, connection);
}

int LiveDispatcherMgr::play(const std::string& sessionId, const std::string& trackId)
{
    return LiveSessionDispatcher::instance().play(sessionId, trackId);
}

int LiveDispatcherMgr::pause(const std::string& sessionId, const std::string& trackId)
{
    return LiveSessionDispatcher::instance().pause(sessionId, trackId);
}

int LiveDispatcherMgr::deleteSessionConection(const std::string& sessionId, const std::string& trackId)
{
    return LiveSessionDispatcher::instance().remove(sessionId, trackId);
}

int LiveDispatcherMgr::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    return LiveSessionDispatcher::instance().getSsrc(sessionId, trackId, ssrc);
}

bool LiveDispatcherMgr::findMulticastSessionId(const std::string& multicastSessionId)
{
    return MulticastRecords::instance().has(multicastSessionId);
}

int LiveDispatcherMgr::getMulticastSessionParam(const std::string& multicastSessionId,
                                                SafePointer<MulticastSessionParameter>& param) const
{
    return MulticastRecords::instance().find(multicastSessionId, param) ? 0 : refhost::hostTrackUnknown;
}

int LiveDispatcherMgr::addMulticastSessionParam(const SafePointer<MulticastSessionParameter>& param)
{
    MulticastRecords::instance().store(param);
    return 0;
}

int LiveDispatcherMgr::deleteMulticastSessionParam(const std::string& multicastSessionId)
{
    MulticastRecords::instance().erase(multicastSessionId);
    return 0;
}
