#pragma once
// Tested by tests/refhost/rtsp/session/SharedSessions_test.cpp, tests/refhost/rtsp/session/Multicast_test.cpp.

#include <string>
#include <string_view>
#include <vector>

#include "live/IRTSPController.h"
#include "refhost/rtp/multicast/MulticastPool.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The stream shared by all sessions of a multicast presentation. A plain value.
struct SharedStream
{
    MulticastPool::Stream stream{0, 0};
    std::vector<std::string> trackIds;  ///< in the order of the description

    static SharedStream of(SafePointer<IRTSPController>& controller);

    /// Number of a track in its group; an empty id means the first one.
    /// \returns -1 when there is no such track
    int numberOf(std::string_view trackId) const;
};

}  // namespace refhost
