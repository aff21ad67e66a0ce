#include "refhost/ingest/client/CameraTrack.h"

namespace refhost
{

PayloadDescription CameraTrack::payload() const
{
    PayloadDescription payload;
    payload.encodingName = encodingName;
    payload.clockRate = clockRate;
    payload.channels = channels;
    payload.parameters = formatParameters;
    return payload;
}

}  // namespace refhost
