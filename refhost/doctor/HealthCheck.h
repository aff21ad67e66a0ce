#pragma once
// Tested by tests/refhost/doctor/CheckRunner_test.cpp.

#include <string>
#include <vector>

#include "refhost/doctor/Finding.h"

namespace refhost
{

/// One check of the machine against a configuration. Changes nothing that lasts. Threads: run() by one.
class HealthCheck
{
public:
    virtual ~HealthCheck() = default;

    /// What is checked, in a word or two.
    virtual std::string subject() const = 0;

    /// Checks. May block: CheckRunner does not wait for ever.
    virtual std::vector<Finding> run() = 0;
};

}  // namespace refhost
