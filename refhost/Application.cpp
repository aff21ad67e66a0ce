#include "refhost/Application.h"

#include <gst/gst.h>
#include <sys/resource.h>

#include <csignal>
#include <utility>

#include "refhost/CommandLine.h"
#include "refhost/base/Log.h"
#include "refhost/base/MediaLogs.h"

namespace refhost
{
namespace
{

// Blocks the signals that end the program for this thread and those that it will start, so that only wait()
// sees them. Destroyed, it lets them through again: a second Ctrl-C ends a shutdown that takes too long.
class EndSignals
{
public:
    EndSignals()
    {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;
    ~EndSignals()
    {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

    int wait() const
    {
        int signal = 0;
        while (sigwait(&signals_, &signal) != 0)
        {
        }
        return signal;
    }

private:
    sigset_t signals_{};
    sigset_t before_{};
};

// Each viewer over TCP is a descriptor, and the customary soft limit of 1024 is there for select(), which
// nothing here uses.
void raiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max)
    {
        return;
    }
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
    {
        Log::warning("the limit of open files stays low; many viewers at once may be refused");
    }
}

}  // namespace

Application::Application(ServerConfig config) : config_(std::move(config)) {}

void Application::prepareProcess() const
{
    Log::setLevel(*Log::levelNamed(config_.logLevel));
    raiseDescriptorLimit();
    std::signal(SIGPIPE, SIG_IGN);
    MediaLogs::bridge();
    gst_init(nullptr, nullptr);
}

int Application::run()
{
    const EndSignals endSignals;
    prepareProcess();
    endSignals.wait();
    return exitDone;
}

}  // namespace refhost
