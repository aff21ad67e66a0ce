#include "refhost/net/TcpLiveness.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "refhost/base/Log.h"

namespace refhost
{

using std::chrono::milliseconds;

namespace
{

// Older C libraries do not know it, and kernels before 6.15 refuse it: the system's two minutes stay then.
constexpr int tcpRtoMaxMs = 44;
constexpr milliseconds minRtoMax = std::chrono::seconds(1);
constexpr milliseconds maxRtoMax = std::chrono::minutes(2);
constexpr int unansweredProbes = 3;

void set(int descriptor, int level, int name, int value)
{
    if (::setsockopt(descriptor, level, name, &value, sizeof value) != 0)
    {
        Log::debug("setsockopt {}/{}: {}", level, name, std::strerror(errno));
    }
}

/// Whether bytes wait for room at the peer, none are on their way, and no probe for room is unanswered.
bool waitsForRoom(int descriptor, const tcp_info& info)
{
    int unsent = 0;
    return info.tcpi_unacked == 0 && info.tcpi_probes == 0 &&
           ::ioctl(descriptor, SIOCOUTQNSD, &unsent) == 0 && unsent > 0;
}

}  // namespace

void TcpLiveness::configure(int listener, std::chrono::seconds timeout)
{
    // A third of the time idle, and half of the time for the probes: dead after five sixths of it.
    const int idle = std::max(static_cast<int>(timeout.count() / 3), 1);
    const int interval = std::max(static_cast<int>(timeout.count() / 6), 1);
    set(listener, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(listener, IPPROTO_TCP, TCP_KEEPIDLE, idle);
    set(listener, IPPROTO_TCP, TCP_KEEPINTVL, interval);
    set(listener, IPPROTO_TCP, TCP_KEEPCNT, unansweredProbes);
    set(listener, IPPROTO_TCP, tcpRtoMaxMs,
        static_cast<int>(std::clamp(milliseconds(timeout) / 4, minRtoMax, maxRtoMax).count()));
}

std::optional<milliseconds> TcpLiveness::silence(int descriptor)
{
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
        (info.tcpi_state != TCP_ESTABLISHED && info.tcpi_state != TCP_CLOSE_WAIT))
    {
        return std::nullopt;
    }
    return milliseconds(waitsForRoom(descriptor, info) ? 0 : std::int64_t{info.tcpi_last_ack_recv});
}

}  // namespace refhost
