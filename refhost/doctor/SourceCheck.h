#pragma once
// Tested by tests/e2e/test_doctor.py.

#include <memory>
#include <string>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/doctor/HealthCheck.h"
#include "refhost/ingest/IngestLoops.h"

namespace refhost
{

/// Whether a stream's source can be read: connects to it, or opens it, as the server does.
class SourceCheck : public HealthCheck
{
public:
    /// How long the source may take until its tracks are known.
    static constexpr std::chrono::seconds maxTime{8};

    /// \param title  the stream's name in the log
    /// \param loops  as IngestLoops::start() requires
    SourceCheck(const StreamConfig& stream, std::string title, std::shared_ptr<IngestLoops> loops);

    std::string subject() const override;
    std::vector<Finding> run() override;

private:
    struct Outcome
    {
        bool described = false;
        bool otherTransport = false;  ///< another one may work
        std::string why{};            ///< empty: it did not answer in time
    };

    Outcome attempt(unsigned number, std::chrono::steady_clock::time_point deadline);

    const StreamConfig stream_;
    const std::string title_;
    const std::shared_ptr<IngestLoops> loops_;
};

}  // namespace refhost
