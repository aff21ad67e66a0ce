#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "refhost/base/Log.h"
#include "refhost/base/Mutex.h"

namespace refhost
{

/// Lets one message of each kind through in `interval` and counts the others, so that nobody can fill the log
/// by provoking one event again and again. Log::limited() has the process's own.
///
/// Knows at most `maxKinds` kinds; messages of further ones share one, "other messages".
/// Threads: any.
class LogLimiter
{
public:
    using Clock = std::chrono::steady_clock;
    using Write = std::function<void(Log::Level level, std::string_view message)>;

    static constexpr std::chrono::seconds interval{10};
    static constexpr std::size_t maxKinds = 64;

    /// \param write  takes the counts; called without the lock
    explicit LogLimiter(Write write);

    /// \param now  not earlier than in any call before
    /// \returns true when a message of `kind` may be written now; otherwise it was counted
    bool admit(Log::Level level, std::string_view kind, Clock::time_point now);

    /// Writes the counts of all kinds whose interval is over at `now`.
    void report(Clock::time_point now);

private:
    struct Kind
    {
        Clock::time_point since;
        std::size_t leftOut = 0;
        Log::Level level = Log::Level::info;  ///< the worst of those left out
    };

    void write(const std::string& kind, const Kind& counted);

    const Write write_;
    Mutex mutex_;
    std::map<std::string, Kind, std::less<>> kinds_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
