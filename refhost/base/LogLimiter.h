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

/// Admits one message of each kind per `interval` and counts the others, so that nobody can flood the log by
/// provoking an event. Log::limited() uses the process's instance.
///
/// Keeps at most `maxKinds` kinds; messages of further kinds count as "other messages".
/// Threads: any.
class LogLimiter
{
public:
    using Clock = std::chrono::steady_clock;
    using Write = std::function<void(Log::Level level, std::string_view message)>;

    static constexpr std::chrono::seconds interval{10};
    static constexpr std::size_t maxKinds = 64;

    /// \param write  writes the counts; called without the lock
    explicit LogLimiter(Write write);

    /// \param now  not earlier than in any previous call
    /// \returns true when a message of `kind` may be written now; otherwise the message is counted
    bool admit(Log::Level level, std::string_view kind, Clock::time_point now);

    /// Writes the counts of all kinds whose interval is over at `now`.
    void report(Clock::time_point now);

private:
    struct Kind
    {
        Clock::time_point since;
        std::size_t leftOut = 0;
        Log::Level level = Log::Level::info;  ///< the worst of the suppressed ones
    };

    void write(const std::string& kind, const Kind& counted);

    const Write write_;
    Mutex mutex_;
    std::map<std::string, Kind, std::less<>> kinds_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
