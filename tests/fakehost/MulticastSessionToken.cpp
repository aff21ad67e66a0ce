#include "hostapi/live/MulticastSessionToken.h"

#include "tests/fakehost/FakeHost.h"

int MulticastSessionToken::generateMulticastSessionId(int cameraId, int streamId, std::string& id)
{
    const std::string numbers = std::to_string(cameraId) + ", " + std::to_string(streamId);
    const FakeHost::Outcome outcome =
        FakeHost::instance().outcomeOf("MulticastSessionToken", 0, "generateMulticastSessionId", numbers, 0);
    if (outcome.result == 0)
    {
        id = "multicast " + std::to_string(cameraId) + "-" + std::to_string(streamId);
    }
    return outcome.result;
}
