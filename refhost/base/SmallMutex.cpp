#include "refhost/base/SmallMutex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace refhost
{
namespace
{

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t),
              "the kernel reads the number itself");

/// Sleeps while `word` is `expected`; may return earlier. errno stays as it was.
void sleepWhile(std::atomic<std::uint32_t>& word, std::uint32_t expected)
{
    const int before = errno;
    ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
    errno = before;
}

}  // namespace

/// Whoever slept once locks it as awaited, because others may sleep still.
void SmallMutex::lockContended()
{
    while (state_.exchange(awaited, std::memory_order_acquire) != unlocked)
    {
        sleepWhile(state_, awaited);
    }
}

void SmallMutex::wakeOne()
{
    const int before = errno;
    ::syscall(SYS_futex, &state_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    errno = before;
}

}  // namespace refhost
