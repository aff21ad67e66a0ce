#include "refhost/base/LogLimiter.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace refhost
{

LogLimiter::LogLimiter(Write write) : write_(std::move(write)) {}

bool LogLimiter::admit(Log::Level level, std::string_view kind, Clock::time_point now)
{
    std::string name(kind);
    Kind counted;
    {
        const MutexLock guard(mutex_);
        auto found = kinds_.find(kind);
        if (found == kinds_.end())
        {
            name = kinds_.size() < maxKinds - 1 ? name : "other messages";
            found = kinds_.find(name);
        }
        if (found == kinds_.end())
        {
            kinds_.emplace(name, Kind{now, 0, level});
            return true;
        }
        Kind& known = found->second;
        if (now - known.since < interval)
        {
            known.level = known.leftOut == 0 ? level : std::max(known.level, level);
            ++known.leftOut;
            return false;
        }
        counted = std::exchange(known, Kind{now, 0, level});
    }
    write(name, counted);
    return true;
}

void LogLimiter::report(Clock::time_point now)
{
    std::vector<std::pair<std::string, Kind>> over;
    {
        const MutexLock guard(mutex_);
        for (auto& [name, kind] : kinds_)
        {
            if (kind.leftOut > 0 && now - kind.since >= interval)
            {
                over.emplace_back(name, kind);
                // Starts the next interval: continuing events are reported once in each.
                kind = Kind{now, 0, kind.level};
            }
        }
    }
    for (const auto& [name, kind] : over)
    {
        write(name, kind);
    }
}

void LogLimiter::write(const std::string& kind, const Kind& counted)
{
    if (counted.leftOut > 0)
    {
        write_(counted.level,
               fmt::format("{}: {} more within {} s", kind, counted.leftOut, interval.count()));
    }
}

}  // namespace refhost
