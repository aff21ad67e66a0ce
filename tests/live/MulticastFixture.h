#pragma once

#include <string>
#include <vector>

#include "hostapi/live/LiveDispatcherMgr.h"
#include "tests/live/LiveControllerFixture.h"

/// A multicast controller of camera 5, stream 6 and what tests of the shared session need besides.
class MulticastFixture : public LiveControllerFixture<MulticastForm>
{
protected:
    using Calls = std::vector<std::string>;

    ~MulticastFixture() noexcept override {}

    int setup(const std::string& sessionId, const std::string& trackId, int kind = 3)
    {
        return controller_->setup(sessionId, trackId, connection(kind));
    }

    /// Members and tracks of the record, "[a b] [trackID=0@url]"; empty when there is none.
    static std::string record()
    {
        const SafePointer<LiveDispatcherMgr> dispatcher = LiveDispatcherMgr::getInstance();
        SafePointer<MulticastSessionParameter> param;
        if (dispatcher->getMulticastSessionParam(sharedId, param) != 0)
        {
            return "";
        }
        std::string text = "[";
        for (const std::string& id : param->getMemberSessionIdList())
        {
            text += (text == "[" ? "" : " ") + id;
        }
        text += "] [";
        std::string tracks;
        for (const TrackParam& track : param->getTrackParamList())
        {
            tracks += (tracks.empty() ? "" : " ") + track.getTrackID() + "@" + track.getMeidaUrl();
        }
        return text + tracks + "]";
    }

    static std::string failure(const std::string& step, int code)
    {
        return "OVMulticastLiveController " + step + " Fail!, return nRet = " + std::to_string(code) + "\n";
    }

    static constexpr const char* sharedId = "multicast 5-6";
    const std::string token_ = "MulticastSessionToken::generateMulticastSessionId(5, 6)";
};
