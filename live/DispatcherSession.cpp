#include "live/DispatcherSession.h"

#include <cstdio>

#include "support/StatusCode.h"

DispatcherSession::DispatcherSession(const char* controllerName,
                                     const SafePointer<LiveDispatcherMgr>& dispatcher,
                                     const std::string& sessionId)
    : controllerName_(controllerName), dispatcher_(dispatcher), sessionId_(sessionId)
{
}

int DispatcherSession::open(const MediaUrlParam& param, const MediaInfo& info, int payloadSize) const
{
    if (dispatcher_->findSession(sessionId_))
    {
        return statusSuccess;
    }
    const int result =
        dispatcher_->initSession(sessionId_, param.getCameraID(), param.getStreamID(), info, payloadSize);
    if (result != statusSuccess)
    {
        std::printf("%s::setup->PLiveDispatcherMgr->initLiveDispatcher Fail!, return nRet = %d\n",
                    controllerName_, result);
    }
    return result;
}

int DispatcherSession::connect(const std::string& trackId, const SafePointer<IConnection>& connection) const
{
    const int result = dispatcher_->addSessionConnection(sessionId_, trackId, connection);
    if (result != statusSuccess)
    {
        std::printf("%s::setup->PLiveDispatcherMgr->addRTPConnection Fail!, return nRet = %d\n",
                    controllerName_, result);
    }
    return result;
}
