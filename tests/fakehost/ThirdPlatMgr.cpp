#include "hostapi/description/ThirdPlatMgr.h"

#include "tests/SampleTracks.h"
#include "tests/fakehost/FakeHost.h"

std::string ThirdPlatMgr::getTrackIDByESStreamType(int platformType, int esStreamType, bool backChannel,
                                                   int encoderType)
{
    FakeHost::instance().called("ThirdPlatMgr", 0, "getTrackIDByESStreamType",
                                std::to_string(platformType) + ", " + std::to_string(esStreamType) + ", " +
                                    (backChannel ? "true" : "false") + ", " + std::to_string(encoderType));
    if (backChannel || esStreamType < 1 || esStreamType > 2)
    {
        return std::string();
    }
    return esStreamType == 1 ? SampleTracks::video().trackId : SampleTracks::audio().trackId;
}
