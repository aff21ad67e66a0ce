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

// TCP_RTO_MAX_MS; older C libraries do not define it, and kernels before 6.15 refuse it: their limit stays two
// minutes.
constexpr int rtoMaxOption = 44;
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

/// Whether unsent bytes wait for the peer's zero window to open, and no window probe is unanswered.
bool isWindowClosed(int descriptor, const tcp_info& info)
{
    int unsent = 0;
    return info.tcpi_unacked == 0 && info.tcpi_probes == 0 &&
           ::ioctl(descriptor, SIOCOUTQNSD, &unsent) == 0 && unsent > 0;
}

}  // namespace

void TcpLiveness::configure(int listener, std::chrono::seconds timeout)
{
    // Idle for a third of the timeout, then three probes in half of it: a dead peer is found after five sixths.
    const int idle = std::max(static_cast<int>(timeout.count() / 3), 1);
    const int interval = std::max(static_cast<int>(timeout.count() / 6), 1);
    set(listener, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(listener, IPPROTO_TCP, TCP_KEEPIDLE, idle);
    set(listener, IPPROTO_TCP, TCP_KEEPINTVL, interval);
    set(listener, IPPROTO_TCP, TCP_KEEPCNT, unansweredProbes);
    set(listener, IPPROTO_TCP, rtoMaxOption,
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
    return milliseconds(isWindowClosed(descriptor, info) ? 0 : std::int64_t{info.tcpi_last_ack_recv});
}

}  // namespace refhost
