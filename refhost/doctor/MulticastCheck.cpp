#include "refhost/doctor/MulticastCheck.h"

#include <fmt/format.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "refhost/base/Descriptor.h"
#include "refhost/base/InterfaceAddresses.h"
#include "refhost/base/Log.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{
namespace
{

/// \returns 0, or why a packet to the group cannot be sent
int refusalOf(const std::string& group, const std::string& listen, unsigned interface)
{
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto local = SocketAddress::parse(listen);
    ip_mreqn through{};
    through.imr_ifindex = static_cast<int>(interface);
    if (interface == 0 && local && local->family() == AF_INET)
    {
        sockaddr_in address{};
        std::memcpy(&address, local->get(), sizeof address);
        through.imr_address = address.sin_addr;
    }
    ::setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_IF, &through, sizeof through);
    const auto remote = SocketAddress::parse(group, 5004);
    return !remote || ::connect(socket.get(), remote->get(), remote->size()) == 0 ? 0 : errno;
}

std::string hostOf(const std::string& group)
{
    return group.substr(0, group.find_first_of("/:"));
}

}  // namespace

MulticastCheck::MulticastCheck(const ServerConfig& config) : config_(config) {}

std::string MulticastCheck::subject() const
{
    return "multicast";
}

std::vector<Finding> MulticastCheck::run()
{
    const std::string& name = config_.multicast.interface;
    unsigned index = 0;
    if (!name.empty())
    {
        const auto all = interfaceAddresses();
        const auto named = std::find_if(all.begin(), all.end(),
                                        [&name](const InterfaceAddress& each)
                                        { return each.interface == name || each.address.text() == name; });
        index = ::if_nametoindex(named == all.end() ? name.c_str() : named->interface.c_str());
        if (index == 0)
        {
            return {
                Finding::failure(fmt::format("[multicast] interface = {}: there is none", Log::safe(name)),
                                 "Name one that \"ip address\" lists, or leave it out")};
        }
    }
    std::set<std::string> fixed;
    for (const CameraConfig& camera : config_.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            fixed.insert(hostOf(stream.multicast));
        }
    }
    fixed.erase("");
    std::set<std::string> groups = fixed;
    groups.insert(hostOf(config_.multicast.pool));
    std::vector<Finding> found;
    for (const std::string& group : groups)
    {
        const int refusal = refusalOf(group, config_.listen, index);
        if (refusal == 0)
        {
            found.push_back(Finding::good(fmt::format("packets to {} have a route", group)));
            continue;
        }
        const std::string text =
            fmt::format("packets to {} have no route: {}", group, std::strerror(refusal));
        const char* const mend =
            "Name an interface in [multicast], or: ip route add 224.0.0.0/4 dev INTERFACE";
        found.push_back(fixed.count(group) != 0 ? Finding::failure(text, mend)
                                                : Finding::warning(text, mend));
    }
    return found;
}

}  // namespace refhost
