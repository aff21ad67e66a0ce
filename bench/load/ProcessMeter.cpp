#include "bench/load/ProcessMeter.h"

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "bench/load/Poller.h"

namespace rtspload
{

ProcessUse ProcessUse::of(pid_t process)
{
    const std::string folder = "/proc/" + std::to_string(process);
    std::string line;
    if (!std::getline(std::ifstream(folder + "/stat"), line))
    {
        throw std::runtime_error("no process " + std::to_string(process));
    }
    // proc(5): the name may hold blanks, so count the fields from its closing bracket; state is field 3.
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string skipped;
    for (int field = 3; field < 14; ++field)
    {
        fields >> skipped;
    }
    std::int64_t user = 0;
    std::int64_t system = 0;
    fields >> user >> system;

    ProcessUse use;
    use.cpuSeconds = static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    use.wallSeconds = static_cast<double>(nowNs()) / 1e9;
    std::ifstream status(folder + "/status");
    while (std::getline(status, line))
    {
        if (line.compare(0, 6, "VmRSS:") == 0)
        {
            use.residentBytes = std::stoll(line.substr(6)) * 1024;
        }
        else if (line.compare(0, 8, "Threads:") == 0)
        {
            use.threads = std::stoi(line.substr(8));
        }
    }
    return use;
}

double corePercent(const ProcessUse& before, const ProcessUse& after)
{
    const double wall = after.wallSeconds - before.wallSeconds;
    return wall > 0 ? 100 * (after.cpuSeconds - before.cpuSeconds) / wall : 0;
}

}  // namespace rtspload
