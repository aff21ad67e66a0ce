#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "refhost/media/AccessUnit.h"
#include "tests/refhost/base/Nanoseconds.h"

namespace refhost
{

/// Collects access units and waits for them.
class CollectingSink : public AccessUnitSink
{
public:
    void onAccessUnit(AccessUnitPtr unit) override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        units_.push_back(std::move(unit));
        arrivals_.push_back(std::chrono::steady_clock::now());
        changed_.notify_all();
    }

    void onDiscontinuity() override
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++discontinuities_;
        changed_.notify_all();
    }

    /// \returns false when fewer than `count` units arrived within ten seconds
    bool waitForUnits(std::size_t count)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(10), [&] { return units_.size() >= count; });
    }

    bool waitForDiscontinuities(int count)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(10), [&] { return discontinuities_ >= count; });
    }

    std::vector<AccessUnitPtr> units() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return units_;
    }

    /// Number of units that arrived less than `distance` after the previous one.
    std::size_t closerThan(std::chrono::milliseconds distance) const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        std::size_t close = 0;
        for (std::size_t i = 1; i < arrivals_.size(); ++i)
        {
            close += arrivals_[i] - arrivals_[i - 1] < distance ? 1 : 0;
        }
        return close;
    }

    /// Time from capture to arrival of each unit.
    std::vector<std::chrono::nanoseconds> delays() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        std::vector<std::chrono::nanoseconds> found;
        for (std::size_t i = 0; i < units_.size(); ++i)
        {
            found.push_back(arrivals_[i].time_since_epoch() -
                            std::chrono::nanoseconds(test::nsOf(units_[i]->captureTime)));
        }
        return found;
    }

    int discontinuities() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return discontinuities_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<AccessUnitPtr> units_;
    std::vector<std::chrono::steady_clock::time_point> arrivals_;
    int discontinuities_ = 0;
};

}  // namespace refhost
