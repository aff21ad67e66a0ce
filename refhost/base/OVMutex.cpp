#include "hostapi/base/OVMutex.h"

#include <pthread.h>

#include <ctime>

#include "refhost/base/Log.h"
#include "refhost/base/OVMutexImpl.h"

// Not std::timed_mutex: it waits with a call that the thread sanitizer does not intercept. A step of the wall
// clock only makes the warning early or late.
void OVMutex::Impl::lockContended(const char* callersFile, int callersLine)
{
    timespec until{};
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += patience.count();
    if (pthread_mutex_timedlock(mutex.native_handle(), &until) == 0)
    {
        return;
    }
    // The holder may change between the two loads; a wrong line in a warning is harmless.
    const char* const holder = file.load(std::memory_order_relaxed);
    refhost::Log::warning("{}:{} still waits for a lock that {}:{} holds", callersFile, callersLine,
                          holder == nullptr ? "nobody" : holder, line.load(std::memory_order_relaxed));
    mutex.lock();
}

OVMutex::OVMutex() : impl_(new Impl) {}

OVMutex::~OVMutex()
{
    delete impl_;
}

int OVMutex::Init()
{
    impl_->file.store(nullptr, std::memory_order_relaxed);
    impl_->line.store(0, std::memory_order_relaxed);
    return 0;
}

void OVMutex::Lock(const char* file, int line)
{
    if (!impl_->mutex.try_lock())
    {
        impl_->lockContended(file, line);
    }
    impl_->file.store(file, std::memory_order_relaxed);
    impl_->line.store(line, std::memory_order_relaxed);
}

void OVMutex::Unlock(const char*, int)
{
    impl_->file.store(nullptr, std::memory_order_relaxed);
    impl_->line.store(0, std::memory_order_relaxed);
    impl_->mutex.unlock();
}
