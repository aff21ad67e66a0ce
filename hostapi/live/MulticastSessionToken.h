#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// Derives the id of a multicast session from what it shows. No state; made for each use. Threads: any.
class OV_HOST_API MulticastSessionToken
{
public:
    /// The same numbers always give the same id, other numbers another one. No id can be an RTSP session's.
    /// \param cameraId, streamId  any int
    /// \param[out] id             the id on success, otherwise unchanged
    /// \returns 0; otherwise a code of the host, which the controller passes on
    int generateMulticastSessionId(int cameraId, int streamId, std::string& id);
};
