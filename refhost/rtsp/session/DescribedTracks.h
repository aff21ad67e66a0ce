#pragma once
// Tested by tests/refhost/rtsp/session/RtspSession_test.cpp.

#include <string>

#include "hostapi/description/SubMediaInfo.h"
#include "live/IRTSPController.h"
#include "refhost/rtsp/message/RtspStatus.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The tracks that a controller describes. A temporary; the controller outlives it.
class DescribedTracks
{
public:
    explicit DescribedTracks(SafePointer<IRTSPController>& controller) : controller_(controller) {}

    /// \param[out] out  filled when there is such a track, otherwise left as it was
    bool find(const std::string& trackId, SubMediaInfo& out) const;

    /// Finds the only track that the device sends; ignores back channels.
    /// \param[out] trackId  filled on success, otherwise unspecified
    /// \returns 200, 459 unless there is exactly one, or the status of the controller's code
    RtspStatus onlySent(std::string& trackId) const;

private:
    SafePointer<IRTSPController>& controller_;
};

}  // namespace refhost
