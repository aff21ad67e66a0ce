#include "hostapi/live/RTPStreamDispatcherMgr.h"

#include "refhost/live/LiveDispatcher.h"

using refhost::LiveDispatcher;

struct RTPStreamDispatcherMgr::Impl
{
};

RTPStreamDispatcherMgr::RTPStreamDispatcherMgr() : impl_(nullptr) {}

RTPStreamDispatcherMgr::~RTPStreamDispatcherMgr() noexcept(false) = default;

SafePointer<RTPStreamDispatcherMgr> RTPStreamDispatcherMgr::getInstance()
{
    static const SafePointer<RTPStreamDispatcherMgr> instance(new RTPStreamDispatcherMgr);
    return instance;
}

int RTPStreamDispatcherMgr::initRTPBuilder(const std::string& streamKey, const std::string& sessionId,
                                           const std::string& trackId, const SubMediaInfo& info,
                                           int payloadSize)
{
    return LiveDispatcher::instance().initTrack(streamKey, sessionId, trackId, info, payloadSize);
}

int RTPStreamDispatcherMgr::addRTPConnection(const std::string& streamKey, const std::string& sessionId,
                                             const std::string& trackId,
                                             const SafePointer<IConnection>& connection)
{
    return LiveDispatcher::instance().addConnection(streamKey, sessionId, trackId, connection);
}

int RTPStreamDispatcherMgr::play(const std::string& streamKey, const std::string& sessionId,
                                 const std::string& trackId)
{
    return LiveDispatcher::instance().play(streamKey, sessionId, trackId);
}

int RTPStreamDispatcherMgr::pause(const std::string& streamKey, const std::string& sessionId,
                                  const std::string& trackId)
{
    return LiveDispatcher::instance().pause(streamKey, sessionId, trackId);
}

int RTPStreamDispatcherMgr::deleteRTPConnection(const std::string& streamKey, const std::string& sessionId,
                                                const std::string& trackId)
{
    return LiveDispatcher::instance().remove(streamKey, sessionId, trackId);
}

int RTPStreamDispatcherMgr::getTrackSSRC(const std::string& streamKey, const std::string& sessionId,
                                         const std::string& trackId, int& ssrc)
{
    return LiveDispatcher::instance().getSsrc(streamKey, sessionId, trackId, ssrc);
}
