#include "refhost/doctor/CheckRunner.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <iterator>
#include <thread>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::atomic<int> abandonedChecks{0};

std::vector<Finding> findingsOf(HealthCheck& check)
{
    try
    {
        return check.run();
    }
    catch (const std::exception& error)
    {
        return {Finding::failure(Log::safe(error.what()), "See what is special about this machine")};
    }
}

/// A check that runs on a thread of its own.
class Started
{
public:
    explicit Started(const std::shared_ptr<HealthCheck>& check)
    {
        std::packaged_task<std::vector<Finding>()> task([check] { return findingsOf(*check); });
        result_ = task.get_future();
        thread_ = std::thread(std::move(task));
    }
    Started(Started&&) = default;
    Started& operator=(Started&&) = delete;
    /// Leaves a check alone that has not ended.
    ~Started()
    {
        if (thread_.joinable())
        {
            thread_.detach();
        }
    }

    std::vector<Finding> await(Clock::time_point deadline, milliseconds limit)
    {
        if (result_.wait_until(deadline) == std::future_status::ready)
        {
            // What it holds is let go before the process goes on to its end.
            thread_.join();
            return result_.get();
        }
        ++abandonedChecks;
        return {Finding::failure(
            fmt::format("it did not end within {:.3g} s", std::chrono::duration<double>(limit).count()),
            "See what it waits for: a disk, a device or a network that does not answer")};
    }

private:
    std::future<std::vector<Finding>> result_;
    std::thread thread_;
};

}  // namespace

std::vector<Finding> CheckRunner::run(const std::vector<std::shared_ptr<HealthCheck>>& checks,
                                      milliseconds limit)
{
    std::vector<Finding> all;
    for (std::size_t first = 0; first < checks.size(); first += maxAtOnce)
    {
        const std::size_t end = std::min(first + maxAtOnce, checks.size());
        std::vector<Started> started;
        for (std::size_t i = first; i < end; ++i)
        {
            started.emplace_back(checks[i]);
        }
        const auto deadline = Clock::now() + limit;
        for (std::size_t i = first; i < end; ++i)
        {
            for (Finding& finding : started[i - first].await(deadline, limit))
            {
                finding.subject = checks[i]->subject();
                all.push_back(std::move(finding));
            }
        }
    }
    return all;
}

int CheckRunner::abandoned()
{
    return abandonedChecks;
}

}  // namespace refhost
