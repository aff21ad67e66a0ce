#pragma once
// Tested by tests/e2e/test_doctor.py.

#include "refhost/config/Config.h"
#include "refhost/doctor/HealthCheck.h"

namespace refhost
{

/// Whether the TLS certificate and key can be read, belong together, and are valid for a while.
class CertificateCheck : public HealthCheck
{
public:
    explicit CertificateCheck(const ServerConfig& config);

    std::string subject() const override;
    std::vector<Finding> run() override;

private:
    const ServerConfig config_;
};

}  // namespace refhost
