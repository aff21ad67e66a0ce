#include "refhost/doctor/KernelCheck.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <fstream>
#include <optional>

namespace refhost
{
namespace
{

std::optional<std::int64_t> setting(const std::string& name)
{
    std::string path = "/proc/sys/" + name;
    std::ifstream file(path);
    std::int64_t value = 0;
    return file >> value ? std::optional(value) : std::nullopt;
}

/// A setting that namespaces of their own do not have is left out.
void judge(const char* name, std::int64_t needed, const char* why, std::vector<Finding>& found)
{
    const auto value = setting(name);
    if (value && *value < needed)
    {
        std::string dotted = name;
        for (char& each : dotted)
        {
            each = each == '/' ? '.' : each;
        }
        found.push_back(Finding::warning(
            fmt::format("{} is {}: {}", dotted, *value, why),
            fmt::format("sysctl -w {}={}, and the same in /etc/sysctl.d/ovrtspd.conf", dotted, needed)));
    }
}

}  // namespace

KernelCheck::KernelCheck(const ServerConfig& config) : config_(config) {}

std::string KernelCheck::subject() const
{
    return "kernel";
}

std::vector<Finding> KernelCheck::run()
{
    std::vector<Finding> found;
    judge("net/core/rmem_max", 1 << 20, "reports of many UDP viewers, and packets of cameras, may be dropped",
          found);
    judge("net/core/wmem_max", 8 << 20, "key frames to many UDP viewers may be dropped", found);
    judge("net/core/somaxconn", 4096, "viewers that connect all at once may have to try again", found);
    std::int64_t streams = 0;
    for (const CameraConfig& camera : config_.cameras)
    {
        streams += static_cast<std::int64_t>(camera.streams.size());
    }
    judge("net/ipv4/igmp_max_memberships", streams, "not every stream can be sent by multicast", found);

    constexpr rlim_t others = 256;  // descriptors beside those of connections
    const rlim_t needed = static_cast<rlim_t>(config_.limits.connections) + others;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_max < needed)
    {
        found.push_back(Finding::warning(
            fmt::format("a process may open {} files, and limits.connections is {}", limit.rlim_max,
                        config_.limits.connections),
            fmt::format("LimitNOFILE={} in the unit (systemctl edit ovrtspd), or lower connections",
                        needed)));
    }
    if (found.empty())
    {
        found.push_back(Finding::good("its limits suffice"));
    }
    return found;
}

}  // namespace refhost
