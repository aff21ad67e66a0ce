#include "refhost/service/ServiceManager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "refhost/base/Decimal.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"
#include "refhost/service/TakenVariable.h"

namespace refhost
{
namespace
{

constexpr std::size_t maxUnsent = 8;
constexpr std::size_t maxStatus = 512;  // bytes

/// \param name  a path, or "@NAME" in the abstract name space
/// \returns the bytes of its address; empty for anything else
std::string addressOf(const std::string& name)
{
    sockaddr_un address{};
    const bool known = name.size() > 1 && (name.front() == '/' || name.front() == '@');
    if (!known || name.size() >= sizeof address.sun_path)
    {
        return {};
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    // A path ends with a zero byte, an abstract name starts with one.
    const bool isAbstract = name.front() == '@';
    address.sun_path[0] = isAbstract ? '\0' : address.sun_path[0];
    const std::size_t size = offsetof(sockaddr_un, sun_path) + name.size() + (isAbstract ? 0 : 1);
    return std::string(reinterpret_cast<const char*>(&address), size);
}

}  // namespace

ServiceManager ServiceManager::fromEnvironment()
{
    const std::string name = takenVariable("NOTIFY_SOCKET");
    const auto watchdog = parseDecimal<std::int64_t>(takenVariable("WATCHDOG_USEC"));
    const std::string watched = takenVariable("WATCHDOG_PID");
    ServiceManager manager;
    if (name.empty())
    {
        return manager;
    }
    manager.address_ = addressOf(name);
    if (manager.address_.empty())
    {
        Log::warning("NOTIFY_SOCKET names no socket: {}", Log::safe(name));
        return manager;
    }
    manager.socket_ = Descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!manager.socket_)
    {
        Log::warning("no socket to the service manager: {}", std::strerror(errno));
        return manager;
    }
    const bool isMeant = watched.empty() || parseDecimal<pid_t>(watched) == ::getpid();
    if (watchdog && *watchdog > 0 && isMeant)
    {
        manager.watchdogTime_ = saturatedDuration(std::chrono::duration<std::int64_t, std::micro>(*watchdog));
    }
    return manager;
}

void ServiceManager::ready()
{
    sendState("READY=1");
}

void ServiceManager::reloading()
{
    // The manager orders this by time against its own request.
    const auto now = HostClock::system().now().time_since_epoch();
    const auto microseconds = std::chrono::floor<std::chrono::microseconds>(now).count();
    sendState("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

void ServiceManager::stopping()
{
    sendState("STOPPING=1");
}

void ServiceManager::status(const std::string& line)
{
    if (!present() || line == status_)
    {
        return;
    }
    std::string text = Log::safe(line, maxStatus);
    sendUnsent();
    if (unsent_.empty() && send("STATUS=" + text))
    {
        status_ = line;
    }
}

void ServiceManager::alive()
{
    sendUnsent();
    if (present() && unsent_.empty())
    {
        send("WATCHDOG=1");
    }
}

void ServiceManager::sendState(const std::string& text)
{
    if (!present())
    {
        return;
    }
    if (unsent_.size() == maxUnsent)
    {
        unsent_.erase(unsent_.begin());
    }
    unsent_.push_back(text);
    sendUnsent();
}

void ServiceManager::sendUnsent()
{
    while (!unsent_.empty() && send(unsent_.front()))
    {
        unsent_.erase(unsent_.begin());
    }
}

/// \returns false when the manager has no room now
bool ServiceManager::send(const std::string& text)
{
    sockaddr_storage address{};  // aligned as the call needs it
    const std::size_t size = std::min(address_.size(), sizeof address);
    std::memcpy(&address, address_.data(), size);
    if (::sendto(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(size)) >= 0)
    {
        return true;
    }
    if (errno == EAGAIN || errno == EINTR || errno == ENOBUFS)
    {
        return false;
    }
    Log::limited(Log::Level::warning, "reports to the service manager",
                 "the service manager takes no report: {}", std::strerror(errno));
    return true;
}

}  // namespace refhost
