#pragma once
// Tested by tests/refhost/rtsp/session/RtspSession_test.cpp.

#include <string>

#include "hostapi/description/SubMediaInfo.h"
#include "live/IRTSPController.h"
#include "refhost/rtsp/message/RtspStatus.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The tracks that a controller describes. Lives for one look; the controller outlives it.
class DescribedTracks
{
public:
    explicit DescribedTracks(SafePointer<IRTSPController>& controller) : controller_(controller) {}

    /// \param[out] out  filled when there is such a track, otherwise left as it was
    bool find(const std::string& trackId, SubMediaInfo& out) const;

    /// Finds the only track that the device sends; back channels do not count.
    /// \param[out] trackId  filled on success, otherwise of no meaning
    /// \returns 200, 459 when there is not exactly one, or what the controller's code means
    RtspStatus onlySent(std::string& trackId) const;

private:
    SafePointer<IRTSPController>& controller_;
};

}  // namespace refhost
