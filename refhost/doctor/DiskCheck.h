#pragma once
// Tested by tests/e2e/test_doctor.py.

#include "refhost/config/Config.h"
#include "refhost/doctor/HealthCheck.h"

namespace refhost
{

/// Whether the disk of the recordings has room, and is fast enough for what is recorded. Writes a file without a name that vanishes with its descriptor.
class DiskCheck : public HealthCheck
{
public:
    explicit DiskCheck(const ServerConfig& config);

    std::string subject() const override;
    std::vector<Finding> run() override;

private:
    const ServerConfig config_;
};

}  // namespace refhost
