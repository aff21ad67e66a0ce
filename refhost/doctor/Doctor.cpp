#include "refhost/doctor/Doctor.h"

#include <gst/gst.h>

#include <iterator>
#include <memory>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/config/ConfigSecrets.h"
#include "refhost/doctor/CertificateCheck.h"
#include "refhost/doctor/CheckRunner.h"
#include "refhost/doctor/ClockCheck.h"
#include "refhost/doctor/DiskCheck.h"
#include "refhost/doctor/ElementsCheck.h"
#include "refhost/doctor/FilesCheck.h"
#include "refhost/doctor/KernelCheck.h"
#include "refhost/doctor/MulticastCheck.h"
#include "refhost/doctor/OutputCheck.h"
#include "refhost/doctor/PortsCheck.h"
#include "refhost/doctor/PrivilegesCheck.h"
#include "refhost/doctor/SourceCheck.h"
#include "refhost/ingest/IngestLoops.h"

namespace refhost
{
namespace
{

constexpr std::chrono::seconds maxCheck(12);

using Checks = std::vector<std::shared_ptr<HealthCheck>>;

void addSources(const ServerConfig& config, Checks& checks)
{
    const auto loops = std::make_shared<IngestLoops>(config.loopCount());
    for (const CameraConfig& camera : config.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            // The synthetic ones fail by missing elements alone.
            if (stream.source.kind != SourceConfig::Kind::synthetic)
            {
                Log::hide(Log::userInfo(stream.source.location));
                checks.push_back(std::make_shared<SourceCheck>(stream, camera.streamName(stream.id), loops));
            }
        }
    }
}

}  // namespace

Doctor::Doctor(ConfigResult read, std::string file) : read_(std::move(read)), file_(std::move(file)) {}

std::vector<Finding> Doctor::configurationFindings() const
{
    const std::string name = file_.empty() ? "the embedded configuration" : Log::safe(file_);
    std::vector<Finding> found;
    for (const ConfigProblem& problem : read_.problems)
    {
        found.push_back(Finding::failure(problem.toString(name),
                                         "Correct that line; every key and its values: "
                                         "ovrtspd --dump-config"));
    }
    for (const ConfigProblem& warning : read_.warnings)
    {
        found.push_back(Finding::warning(warning.toString(name), "Correct that line"));
    }
    for (const std::string& warning : read_.config ? read_.config->warnings() : std::vector<std::string>())
    {
        found.push_back(Finding::warning(warning, "Change it if it is not meant so"));
    }
    if (const auto exposed = read_.config ? ConfigSecrets::exposedBy(file_, *read_.config) : std::nullopt)
    {
        found.push_back(Finding::warning("everybody can read the passwords in " + name, "chmod o= " + name));
    }
    if (const auto exposed = read_.config ? ConfigSecrets::exposedByUsersFile(*read_.config) : std::nullopt)
    {
        const std::string& users = read_.config->usersFile;
        found.push_back(
            Finding::warning("everybody can read the passwords in " + users, "chmod o= " + users));
    }
    if (found.empty())
    {
        found.push_back(Finding::good(name + " is valid"));
    }
    for (Finding& finding : found)
    {
        finding.subject = "configuration";
    }
    return found;
}

std::vector<Finding> Doctor::examine()
{
    std::vector<Finding> found = configurationFindings();
    // Without a valid one, the machine is checked for that of no file.
    const ServerConfig config = read_.config ? *read_.config : ServerConfig::embedded();
    gst_init(nullptr, nullptr);
    Checks checks;
    if (read_.config)
    {
        checks = {std::make_shared<PortsCheck>(config), std::make_shared<PrivilegesCheck>(config),
                  std::make_shared<FilesCheck>(config), std::make_shared<CertificateCheck>(config),
                  std::make_shared<DiskCheck>(config),  std::make_shared<MulticastCheck>(config),
                  std::make_shared<OutputCheck>(config)};
    }
    checks.push_back(std::make_shared<ElementsCheck>(config));
    checks.push_back(std::make_shared<ClockCheck>(config));
    checks.push_back(std::make_shared<KernelCheck>(config));
    if (read_.config)
    {
        addSources(config, checks);
    }
    std::vector<Finding> more = CheckRunner::run(checks, maxCheck);
    found.insert(found.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    return found;
}

}  // namespace refhost
