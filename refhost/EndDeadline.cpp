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
    constexpr long usOfMs = 1000;
    constexpr long msOfSecond = 1000;
    itimerval timer{};
    timer.it_value.tv_sec = static_cast<time_t>(time.count() / msOfSecond);
    timer.it_value.tv_usec = static_cast<suseconds_t>(time.count() % msOfSecond * usOfMs);
    setitimer(ITIMER_REAL, &timer, nullptr);
}

// In a signal handler: nothing but system calls.
void endNow(int)
{
    constexpr std::string_view text = "ovrtspd: something hangs and is not waited for any longer\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    ::_exit(exitFailed);
}

}  // namespace

EndDeadline::EndDeadline(std::chrono::milliseconds time)
{
    struct sigaction action = {};
    action.sa_handler = &endNow;
    sigaction(SIGALRM, &action, nullptr);
    // Whoever started the program may have blocked it.
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    arm(time);
}

EndDeadline::~EndDeadline()
{
    arm(std::chrono::milliseconds(0));
}

}  // namespace refhost
