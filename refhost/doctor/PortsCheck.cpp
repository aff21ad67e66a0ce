#include "refhost/doctor/PortsCheck.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/doctor/PortOwner.h"

namespace refhost
{
namespace
{

/// \param key  of the configuration, that names the port
Finding judged(const SocketAddress& address, int type, const std::string& what, const std::string& key)
{
    const Descriptor socket(::socket(address.family(), type | SOCK_CLOEXEC, 0));
    const int yes = 1;
    if (type == SOCK_STREAM)
    {
        ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    }
    const bool isTcp = type == SOCK_STREAM;
    const std::string where =
        fmt::format("{} port {} ({}) at {}", isTcp ? "TCP" : "UDP", address.port(), what, address.text());
    if (::bind(socket.get(), address.get(), address.size()) == 0 &&
        (!isTcp || ::listen(socket.get(), 1) == 0))
    {
        return Finding::good(where + " is free");
    }
    const int reason = errno;
    if (reason == EADDRINUSE)
    {
        const PortOwner owner = PortOwner::find(address.port(), isTcp);
        return owner.program == "ovrtspd"
                   ? Finding::good(where + " is served by a running ovrtspd")
                   : Finding::failure(
                         fmt::format("{} is in use{}{}", where, owner.known() ? " by " : "", owner.text()),
                         fmt::format("End that program, or choose another {}", key));
    }
    if (reason == EACCES)
    {
        return Finding::failure(where + " is for privileged programs",
                                "Have systemd open it (systemctl enable ovrtspd.socket), give the service "
                                "CAP_NET_BIND_SERVICE, or choose a port from 1024 on");
    }
    if (reason == EADDRNOTAVAIL)
    {
        return Finding::failure(
            where + " cannot be opened: no interface of this machine has the address",
            "Correct listen, or configure the interface; \"ip address\" lists what there is");
    }
    return Finding::failure(fmt::format("{} cannot be opened: {}", where, std::strerror(reason)),
                            fmt::format("Choose another listen or {}", key));
}

}  // namespace

PortsCheck::PortsCheck(const ServerConfig& config) : config_(config) {}

std::string PortsCheck::subject() const
{
    return "ports";
}

std::vector<Finding> PortsCheck::run()
{
    std::vector<Finding> found;
    const auto add = [&found](const std::string& listen, int port, int type, const std::string& what,
                              const std::string& key)
    {
        const auto address = SocketAddress::parse(listen, port);
        found.push_back(address ? judged(*address, type, what, key)
                                : Finding::failure(listen + " is no numeric address", "Correct listen"));
    };
    add(config_.listen, config_.port, SOCK_STREAM, "RTSP", "port");
    if (config_.tls.enabled())
    {
        add(config_.tls.listen.empty() ? config_.listen : config_.tls.listen, config_.tls.port, SOCK_STREAM,
            "RTSP over TLS", "[tls] port");
    }
    if (config_.http.enabled())
    {
        if (const auto address = SocketAddress::parseWithPort(config_.http.listen))
        {
            found.push_back(judged(*address, SOCK_STREAM, "HTTP", "[http] listen"));
        }
    }
    if (config_.rtpPort != 0)
    {
        add(config_.listen, config_.rtpPort, SOCK_DGRAM, "RTP", "rtp-port");
        add(config_.listen, config_.rtpPort + 1, SOCK_DGRAM, "RTCP", "rtp-port");
    }
    return found;
}

}  // namespace refhost
