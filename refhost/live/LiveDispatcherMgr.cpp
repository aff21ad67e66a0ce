#include "hostapi/live/LiveDispatcherMgr.h"

#include "refhost/base/HostStatus.h"

using namespace refhost;

// This host serves no session in this way yet: every stream and every track is unknown.
struct LiveDispatcherMgr::Impl
{
    MTUParam mtu;
};

LiveDispatcherMgr::LiveDispatcherMgr() : impl_(new Impl)
{
    impl_->mtu.setMTUValue(1440);
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

bool LiveDispatcherMgr::findSession(const std::string&)
{
    return false;
}

int LiveDispatcherMgr::initSession(const std::string&, int, int, const MediaInfo&, int)
{
    return hostStreamUnknown;
}

int LiveDispatcherMgr::addSessionConnection(const std::string&, const std::string&,
                                            const SafePointer<IConnection>&)
{
    return hostTrackUnknown;
}

int LiveDispatcherMgr::play(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}

int LiveDispatcherMgr::pause(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}

int LiveDispatcherMgr::deleteSessionConection(const std::string&, const std::string&)
{
    return hostTrackUnknown;
}

int LiveDispatcherMgr::getTrackSSRC(const std::string&, const std::string&, int&)
{
    return hostTrackUnknown;
}

bool LiveDispatcherMgr::findMulticastSessionId(const std::string&)
{
    return false;
}

int LiveDispatcherMgr::getMulticastSessionParam(const std::string&,
                                                SafePointer<MulticastSessionParameter>&) const
{
    return hostTrackUnknown;
}

int LiveDispatcherMgr::addMulticastSessionParam(const SafePointer<MulticastSessionParameter>&)
{
    return hostStreamUnknown;
}

int LiveDispatcherMgr::deleteMulticastSessionParam(const std::string&)
{
    return hostTrackUnknown;
}
