#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <vector>

#include "refhost/doctor/HealthCheck.h"

namespace refhost
{

/// Runs checks side by side and waits for none of them longer than a limit. Threads: one.
class CheckRunner
{
public:
    static constexpr std::size_t maxAtOnce = 16;

    /// \returns the findings of all checks in their order; a check that does not end within `limit`, or that
    ///          throws, is a failure
    static std::vector<Finding> run(const std::vector<std::shared_ptr<HealthCheck>>& checks,
                                    std::chrono::milliseconds limit);

    /// How many checks of this process did not end in time. Their threads go on: the process must end without
    /// destroying its static objects.
    static int abandoned();
};

}  // namespace refhost
