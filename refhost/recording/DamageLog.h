#pragma once
// Tested by tests/refhost/recording/Recorder_test.cpp.

#include <cstdint>
#include <string>

#include "refhost/base/Times.h"
#include "refhost/recording/LogPause.h"

namespace refhost
{

/// Logs that a recorded stream has damaged frames: the first one at once, then how many there were from when to when,
/// in one line in ten minutes at most. Threads: one at a time.
class DamageLog
{
public:
    /// \param title  of the stream
    explicit DamageLog(std::string title);

    /// A frame was recorded without some of its packets. \param at  its date in the recording
    void add(WallTime at);

    /// Logs what was counted where it is time. Costs nothing where nothing was.
    void report()
    {
        if (frames_ > 0 && pause_.isOver())
        {
            write();
        }
    }

    /// Logs what was counted.
    void end()
    {
        if (frames_ > 0)
        {
            write();
        }
    }

private:
    void write();

    const std::string title_;
    LogPause pause_;
    std::uint64_t frames_ = 0;  ///< not logged yet
    WallTime first_;            ///< of these
    WallTime last_;
};

}  // namespace refhost
