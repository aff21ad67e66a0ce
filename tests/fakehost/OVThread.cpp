#include "hostapi/threads/OVThread.h"

#include "tests/fakehost/ThreadState.h"

OVThread::OVThread() : state_(new State) {}

OVThread::~OVThread() noexcept(false)
{
    delete state_;
}

bool OVThread::IsRunning()
{
    return state_->running;
}
