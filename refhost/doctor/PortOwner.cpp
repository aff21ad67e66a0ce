#include "refhost/doctor/PortOwner.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <system_error>

#include "refhost/base/Decimal.h"
#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

namespace fs = std::filesystem;

/// The sockets of a table of /proc/net on a local port, as links of /proc/PID/fd name them.
void collect(const char* table, int port, bool listening, std::set<std::string>& sockets)
{
    std::ifstream file(table);
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line))
    {
        std::istringstream fields(line);
        std::string number, local, remote, state, skipped, inode;
        fields >> number >> local >> remote >> state >> skipped >> skipped >> skipped >> skipped >> skipped >>
            inode;
        const std::string hex = local.substr(std::min(local.rfind(':'), local.size() - 1) + 1);
        int found = -1;
        std::from_chars(hex.data(), hex.data() + hex.size(), found, 16);
        if (found == port && (!listening || state == "0A"))
        {
            sockets.insert("socket:[" + inode + "]");
        }
    }
}

bool holdsOne(const fs::path& process, const std::set<std::string>& sockets)
{
    std::error_code failure;
    for (fs::directory_iterator entry(process / "fd", failure), end; !failure && entry != end;
         entry.increment(failure))
    {
        std::error_code unreadable;
        if (sockets.count(fs::read_symlink(entry->path(), unreadable).string()) != 0)
        {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string PortOwner::text() const
{
    return known() ? fmt::format("{} (process {})", program, process) : "";
}

PortOwner PortOwner::find(int port, bool tcp)
{
    std::set<std::string> sockets;
    for (const char* const table : {"/proc/net/tcp", "/proc/net/tcp6", "/proc/net/udp", "/proc/net/udp6"})
    {
        if (tcp == (std::string(table).find("tcp") != std::string::npos))
        {
            collect(table, port, tcp, sockets);
        }
    }
    std::error_code failure;
    for (fs::directory_iterator entry("/proc", failure), end; !failure && entry != end;
         entry.increment(failure))
    {
        const auto process = parseDecimal<int>(entry->path().filename().string());
        if (process && holdsOne(entry->path(), sockets))
        {
            std::ifstream name(entry->path() / "comm");
            PortOwner owner;
            std::getline(name, owner.program);
            owner.program = Log::safe(owner.program);
            owner.process = *process;
            return owner;
        }
    }
    return {};
}

}  // namespace refhost
