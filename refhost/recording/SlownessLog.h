#pragma once
// Tested by tests/refhost/recording/Recorder_test.cpp.

#include <string>

#include "refhost/base/Times.h"
#include "refhost/recording/LogPause.h"

namespace refhost
{

/// Logs that a disk is too slow for a recording: when it starts to leave media out, the first time, and what is missing
/// once it has caught up, in one line in ten minutes at most. Threads: one at a time.
class SlownessLog
{
public:
    /// The recording leaves media out. \param since  date of the first that is
    void onSkip(const std::string& title, WallTime since);
    /// The recording goes on. \param until  date of the first unit that is recorded again
    void onCaughtUp(const std::string& title, WallTime until);

private:
    bool reported_ = false;
    LogPause pause_;
    WallTime since_;
};

}  // namespace refhost
