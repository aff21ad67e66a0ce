#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

/// Lets two threads do the same at the same time, in short bursts that both start together.
///
/// The time of one iteration is that of one operation of either thread: the span from the first start to the
/// last end, shared out among the operations of both. Beside the mean, which a burst that the system
/// interrupted spoils, the median is reported as "median_ns".
class TwoThreads
{
public:
    template <class Operation>
    static void run(benchmark::State& state, const Operation& operation)
    {
        constexpr int operations = 2000;  // of each thread in a burst: some tens of microseconds
        std::atomic<int> started[2] = {{0}, {0}};
        std::atomic<int> ended{0};
        std::atomic<bool> over{false};
        Clock::time_point ends[2];

        const auto burst = [&](int own, int number)
        {
            started[own] = number;
            while (started[1 - own] < number && !over)
            {
            }
            const Clock::time_point start = Clock::now();
            for (int i = 0; i < operations && !over; ++i)
            {
                operation();
            }
            ends[own] = Clock::now();
            ++ended;
            return start;
        };
        std::thread other(
            [&]
            {
                for (int number = 1; !over; ++number)
                {
                    burst(1, number);
                }
            });
        std::vector<double> times;
        int number = 0;
        for (auto _ : state)
        {
            ++number;
            const Clock::time_point start = burst(0, number);
            while (ended < 2 * number)
            {
            }
            const std::chrono::duration<double> span = std::max(ends[0], ends[1]) - start;
            times.push_back(span.count() / (2 * operations));
            state.SetIterationTime(times.back());
        }
        over = true;
        other.join();
        std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2),
                         times.end());
        state.counters["median_ns"] = times[times.size() / 2] * 1e9;
    }

private:
    using Clock = std::chrono::steady_clock;
};
