#include "refhost/EndDeadline.h"

#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

#include "refhost/CommandLine.h"

namespace refhost
{
namespace
{

void arm(std::chrono::milliseconds time)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    itimerval timer{};
    timer.it_value.tv_sec = static_cast<time_t>(seconds.count());
    timer.it_value.tv_usec = static_cast<suseconds_t>(std::chrono::microseconds(time - seconds).count());
    setitimer(ITIMER_REAL, &timer, nullptr);
}

// A signal handler: only async-signal-safe calls.
void endNow(int)
{
    constexpr std::string_view text = "ovrtspd: something hangs and is not waited for any longer\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    ::_exit(exitFailed);
}

}  // namespace

EndDeadline::EndDeadline(std::chrono::milliseconds limit)
{
    struct sigaction action = {};
    action.sa_handler = &endNow;
    sigaction(SIGALRM, &action, nullptr);
    // The parent process may have blocked SIGALRM.
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    arm(limit);
}

EndDeadline::~EndDeadline()
{
    arm(std::chrono::milliseconds(0));
}

}  // namespace refhost
