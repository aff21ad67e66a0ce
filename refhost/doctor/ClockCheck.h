#pragma once
// Tested by tests/e2e/test_doctor.py.

#include "refhost/config/Config.h"
#include "refhost/doctor/HealthCheck.h"

namespace refhost
{

/// Whether the wall clock, which dates recordings, is set and kept right.
class ClockCheck : public HealthCheck
{
public:
    explicit ClockCheck(const ServerConfig& config);

    std::string subject() const override;
    std::vector<Finding> run() override;

private:
    const ServerConfig config_;
};

}  // namespace refhost
