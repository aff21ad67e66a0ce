#include "refhost/doctor/PrivilegesCheck.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace refhost
{
namespace
{

constexpr unsigned bindService = 10;  // CAP_NET_BIND_SERVICE

std::uint64_t capabilities()
{
    std::ifstream status("/proc/self/status");
    const std::string label = "CapEff:";
    for (std::string line; std::getline(status, line);)
    {
        if (line.compare(0, label.size(), label) == 0)
        {
            return std::stoull(line.substr(label.size()), nullptr, 16);
        }
    }
    return 0;
}

int firstOpenPort()
{
    std::ifstream file("/proc/sys/net/ipv4/ip_unprivileged_port_start");
    int port = 1024;
    return file >> port ? port : 1024;
}

}  // namespace

PrivilegesCheck::PrivilegesCheck(const ServerConfig& config) : config_(config) {}

std::string PrivilegesCheck::subject() const
{
    return "capabilities";
}

std::vector<Finding> PrivilegesCheck::run()
{
    std::vector<Finding> found;
    const bool mayBind = (capabilities() >> bindService & 1U) != 0;
    const int first = firstOpenPort();
    const auto judge = [&](int port, const char* key)
    {
        if (port != 0 && port < first && !mayBind)
        {
            found.push_back(Finding::failure(
                fmt::format("{} = {} needs CAP_NET_BIND_SERVICE, which this user does not have", key, port),
                "Have systemd open it (systemctl enable ovrtspd.socket), give the service "
                "CAP_NET_BIND_SERVICE, or choose a port from 1024 on"));
        }
    };
    judge(config_.port, "port");
    if (config_.tls.enabled())
    {
        judge(config_.tls.port, "[tls] port");
    }
    if (::geteuid() == 0)
    {
        found.push_back(
            Finding::warning("this check runs as root, who may do what the service's user may not",
                             "Check as that user: runuser -u ovrtspd -- ovrtspd doctor --config FILE"));
    }
    if (found.empty())
    {
        found.push_back(Finding::good("the server needs none that it does not have"));
    }
    return found;
}

}  // namespace refhost
