#pragma once
// Tested by tests/e2e/test_doctor.py.

#include "refhost/config/Config.h"
#include "refhost/doctor/HealthCheck.h"

namespace refhost
{

/// Whether the configured addresses and ports can be opened, and who has them where they cannot.
class PortsCheck : public HealthCheck
{
public:
    explicit PortsCheck(const ServerConfig& config);

    std::string subject() const override;
    std::vector<Finding> run() override;

private:
    const ServerConfig config_;
};

}  // namespace refhost
