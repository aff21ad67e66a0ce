#include "hostapi/live/MulticastSessionToken.h"

int MulticastSessionToken::generateMulticastSessionId(int cameraId, int streamId, std::string& id)
{
    // Cannot collide with the id of an RTSP session, which is hexadecimal.
    id = "multicast/" + std::to_string(cameraId) + "/" + std::to_string(streamId);
    return 0;
}
