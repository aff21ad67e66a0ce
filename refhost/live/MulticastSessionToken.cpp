#include "hostapi/live/MulticastSessionToken.h"

int MulticastSessionToken::generateMulticastSessionId(int cameraId, int streamId, std::string& id)
{
    // An RTSP session's id has no such letters.
    id = "multicast/" + std::to_string(cameraId) + "/" + std::to_string(streamId);
    return 0;
}
