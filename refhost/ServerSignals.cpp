#include "refhost/ServerSignals.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace refhost
{
namespace
{

Descriptor openTerminal()
{
    return Descriptor(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

ServerSignals::ServerSignals() : hadTerminal_(static_cast<bool>(openTerminal()))
{
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    struct sigaction hangup = {};
    if (sigaction(SIGHUP, nullptr, &hangup) != 0 || hangup.sa_handler != SIG_IGN)
    {
        sigaddset(&signals_, SIGHUP);
    }
    descriptor_ = Descriptor(::signalfd(-1, &signals_, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_)
    {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
}

ServerSignals::~ServerSignals()
{
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

/// The controlling terminal can be opened as long as it is there, whatever became of the standard streams.
bool ServerSignals::terminalIsGone() const
{
    errno = 0;
    return hadTerminal_ && !openTerminal() && (errno == ENXIO || errno == EIO);
}

ServerSignals::Event ServerSignals::wait(std::chrono::milliseconds max,
                                         std::initializer_list<int> descriptors) const
{
    std::vector<pollfd> watched{{descriptor_.get(), POLLIN, 0}};
    for (const int descriptor : descriptors)
    {
        watched.push_back({descriptor, POLLIN, 0});
    }
    ::poll(watched.data(), watched.size(), static_cast<int>(max.count()));
    Event event;
    signalfd_siginfo received{};
    while (::read(descriptor_.get(), &received, sizeof received) == static_cast<ssize_t>(sizeof received))
    {
        const int signal = static_cast<int>(received.ssi_signo);
        const bool hangup = signal == SIGHUP;
        if (!hangup || received.ssi_code == SI_KERNEL || terminalIsGone())
        {
            event.end = signal;
            return event;
        }
        event.reload = true;
    }
    return event;
}

}  // namespace refhost
