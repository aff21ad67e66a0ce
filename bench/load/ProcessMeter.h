#pragma once

#include <sys/types.h>

#include <cstdint>

namespace rtspload
{

/// What a process has used so far.
struct ProcessUse
{
    double cpuSeconds = 0;   ///< user and system time of all its threads
    double wallSeconds = 0;  ///< monotonic clock
    std::int64_t residentBytes = 0;
    int threads = 0;

    /// Reads /proc of a process. \throws std::runtime_error when it is not there
    static ProcessUse of(pid_t process);
};

/// Part of one core that was used between two readings, in percent.
double corePercent(const ProcessUse& before, const ProcessUse& after);

}  // namespace rtspload
