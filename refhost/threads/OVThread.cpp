#include "hostapi/threads/OVThread.h"

#include "refhost/threads/OVThreadState.h"

OVThread::OVThread() : state_(new State) {}

OVThread::~OVThread() noexcept(false)
{
    delete state_;
}

bool OVThread::IsRunning()
{
    return state_->shared->running.load(std::memory_order_acquire);
}
