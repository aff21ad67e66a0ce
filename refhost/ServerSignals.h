#pragma once
// Tested by tests/e2e/test_reload.py, tests/e2e/test_shutdown.py.

#include <chrono>
#include <csignal>
#include <initializer_list>

#include "refhost/base/Descriptor.h"

namespace refhost
{

/// The signals that the running server acts on: blocked for this thread and those that it starts, so that only wait()
/// receives them. The destructor unblocks them: a second Ctrl-C ends a shutdown that takes too long.
///
/// SIGINT and SIGTERM end the server. So does the SIGHUP of a terminal that closes; any other SIGHUP has the
/// configuration read again. A server that was started with SIGHUP ignored, as by nohup, stays so.
///
/// Threads: one, before it has started others.
class ServerSignals
{
public:
    /// \throws std::system_error when the system has no descriptor for them
    ServerSignals();
    ~ServerSignals();
    ServerSignals(const ServerSignals&) = delete;
    ServerSignals& operator=(const ServerSignals&) = delete;

    struct Event
    {
        int end = 0;          ///< the signal that ends the server; 0: none
        bool reload = false;  ///< the configuration is to be read again
    };

    /// Waits for a signal, or for one of the descriptors to be readable.
    /// \param max  how long
    Event wait(std::chrono::milliseconds max, std::initializer_list<int> descriptors) const;

private:
    bool terminalIsGone() const;

    sigset_t signals_{};
    sigset_t before_{};
    Descriptor descriptor_;
    bool hadTerminal_ = false;
};

}  // namespace refhost
