#include "hostapi/base/OVMutex.h"

#include <chrono>

#include "refhost/base/Log.h"
#include "refhost/base/OVMutexImpl.h"

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
        if (!impl_->mutex.try_lock_for(Impl::patience))
        {
            // Between the two loads the holder may change; a wrong line in a warning is no harm.
            const char* holder = impl_->file.load(std::memory_order_relaxed);
            refhost::Log::warning("{}:{} still waits for a lock that {}:{} holds", file, line,
                                  holder == nullptr ? "nobody" : holder,
                                  impl_->line.load(std::memory_order_relaxed));
            impl_->mutex.lock();
        }
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
