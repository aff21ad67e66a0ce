#pragma once
// Tested by tests/audioback/OVAudioBackWorker_test.cpp.

#include <string>
#include <vector>

#include "support/Export.h"

/// Collects the sessions whose dispatcher failed permanently in one pass of the talk-back worker, which removes
/// them after the pass.
class OV_INTERNAL FailedSessions
{
public:
    /// Adds a session unless its dispatcher's code is a tolerated one.
    void note(const std::string& sessionId, int code);

    /// In the order of adding.
    const std::vector<std::string>& ids() const
    {
        return ids_;
    }

private:
    std::vector<std::string> ids_;
};
