#pragma once
// Tested by tests/e2e/test_doctor.py.

#include "refhost/config/Config.h"
#include "refhost/doctor/HealthCheck.h"

namespace refhost
{

/// Whether this user can read and write what the configuration names: recordings, sources, devices, the TLS
/// folder, a WAV output.
class FilesCheck : public HealthCheck
{
public:
    explicit FilesCheck(const ServerConfig& config);

    std::string subject() const override;
    std::vector<Finding> run() override;

private:
    const ServerConfig config_;
};

}  // namespace refhost
