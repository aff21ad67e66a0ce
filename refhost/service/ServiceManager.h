#pragma once

#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// Reports the state of the process to the service manager that started it (systemd's protocol, sd_notify(3)):
/// datagrams of KEY=VALUE lines to the socket that NOTIFY_SOCKET names. Without one, nothing happens.
///
/// No call waits for a manager that does not read: a state that it has no room for is sent again by the next
/// call. Threads: one at a time.
class ServiceManager
{
public:
    /// None.
    ServiceManager() = default;

    /// Takes NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID out of the environment, so that programs which this
    /// one starts do not report for it. Requires: no other thread yet.
    static ServiceManager fromEnvironment();

    /// True when there is a manager that reads reports.
    bool present() const
    {
        return static_cast<bool>(socket_);
    }

    /// The process serves, after its start or after a reload.
    void ready();
    /// The process reads its configuration again; ready() follows, whatever came of it.
    void reloading();
    /// The process ends.
    void stopping();
    /// One line for people, such as "3 cameras running"; sent when it differs from the last one.
    void status(const std::string& line);
    /// A sign of life for the watchdog. One that the manager has no room for is not sent again.
    void alive();

    /// Within which time the manager expects alive() again; nothing: it does not.
    std::optional<Duration> watchdogTime() const
    {
        return watchdogTime_;
    }

private:
    bool send(const std::string& text);
    void sendState(const std::string& text);
    void sendUnsent();

    Descriptor socket_;
    std::string address_;              ///< the bytes of a sockaddr_un
    std::vector<std::string> unsent_;  ///< states, the oldest first; a few
    std::string status_;
    std::optional<Duration> watchdogTime_;
};

}  // namespace refhost
