#include "hostapi/base/OVMutex.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/OVMutexInspector.h"

struct OVMutex::Impl
{
    std::mutex mutex;
    std::atomic<std::thread::id> holder{std::thread::id()};
    // Guarded by `mutex`.
    const char* lockFile = "";
    int lockLine = 0;
    const char* unlockFile = "";
    int unlockLine = 0;
    int initCount = 0;
};

namespace
{

// A mutex misused would hang or go unnoticed; a test must see it at once.
void require(bool condition, const char* what, const char* file, int line)
{
    if (!condition)
    {
        std::fprintf(stderr, "OVMutex: %s at %s:%d\n", what, file, line);
        std::abort();
    }
}

void log(const char* operation, const char* file, int line)
{
    if (FakeHost::instance().wantsLocks())
    {
        FakeHost::instance().called("OVMutex", 0, operation, std::string(file) + ", " + std::to_string(line));
    }
}

}  // namespace

OVMutex::OVMutex() : impl_(new Impl)
{
    FakeHost::instance().born("OVMutex");
}

OVMutex::~OVMutex()
{
    require(impl_->holder.load() == std::thread::id(), "destroyed while it is held", impl_->lockFile,
            impl_->lockLine);
    delete impl_;
    FakeHost::instance().died("OVMutex");
}

int OVMutex::Init()
{
    require(impl_->holder.load() == std::thread::id(), "initialised while it is held", impl_->lockFile,
            impl_->lockLine);
    ++impl_->initCount;
    if (FakeHost::instance().wantsLocks())
    {
        FakeHost::instance().called("OVMutex", 0, "Init");
    }
    return 0;
}

void OVMutex::Lock(const char* file, int line)
{
    require(impl_->holder.load() != std::this_thread::get_id(), "locked again by its holder", file, line);
    impl_->mutex.lock();
    impl_->holder = std::this_thread::get_id();
    impl_->lockFile = file;
    impl_->lockLine = line;
    ++FakeHost::locksHeldHere();
    log("Lock", file, line);
}

void OVMutex::Unlock(const char* file, int line)
{
    require(impl_->holder.load() == std::this_thread::get_id(), "unlocked by another than its holder", file,
            line);
    log("Unlock", file, line);
    --FakeHost::locksHeldHere();
    impl_->unlockFile = file;
    impl_->unlockLine = line;
    impl_->holder = std::thread::id();
    impl_->mutex.unlock();
}

std::string OVMutexInspector::lastLock(const OVMutex& mutex)
{
    return std::string(mutex.impl_->lockFile) + ":" + std::to_string(mutex.impl_->lockLine);
}

std::string OVMutexInspector::lastUnlock(const OVMutex& mutex)
{
    return std::string(mutex.impl_->unlockFile) + ":" + std::to_string(mutex.impl_->unlockLine);
}

bool OVMutexInspector::isHeld(const OVMutex& mutex)
{
    return mutex.impl_->holder.load() != std::thread::id();
}

int OVMutexInspector::initCount(const OVMutex& mutex)
{
    return mutex.impl_->initCount;
}
