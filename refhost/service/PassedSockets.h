#pragma once

#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// The listening sockets that the service manager opened for this process (systemd's socket activation,
/// sd_listen_fds(3)), such as one on a port that only root may open. Threads: one at a time.
class PassedSockets
{
public:
    /// Max sockets that are looked at; further ones stay open and unused.
    static constexpr int maxSockets = 16;

    /// None.
    PassedSockets() = default;

    /// Takes LISTEN_PID, LISTEN_FDS and LISTEN_FDNAMES out of the environment, and owns the sockets that they
    /// describe. A single socket without one of `names` counts as the first of them. Sockets that are no
    /// listening TCP sockets, or have no name of `names`, or the name of an earlier one, are closed.
    /// Requires: no other thread yet, and no descriptor opened since the start that must stay.
    /// \param[out] problems  one line for each closed socket
    static PassedSockets fromEnvironment(const std::vector<std::string>& names,
                                         std::vector<std::string>& problems);

    /// Address and port of a socket that was not taken yet; nothing: there is none of this name.
    std::optional<SocketAddress> address(const std::string& name) const;
    /// \returns the socket, or none
    Descriptor take(const std::string& name);

private:
    struct Passed
    {
        std::string name;
        Descriptor socket;
    };

    std::vector<Passed> sockets_;
};

}  // namespace refhost
