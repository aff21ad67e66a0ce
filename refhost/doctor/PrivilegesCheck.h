#pragma once
// Tested by tests/e2e/test_doctor.py.

#include "refhost/config/Config.h"
#include "refhost/doctor/HealthCheck.h"

namespace refhost
{

/// Whether the user that runs the server has the capabilities that it needs, and no more.
class PrivilegesCheck : public HealthCheck
{
public:
    explicit PrivilegesCheck(const ServerConfig& config);

    std::string subject() const override;
    std::vector<Finding> run() override;

private:
    const ServerConfig config_;
};

}  // namespace refhost
