#include "hostapi/base/OVMutex.h"

#include <gtest/gtest.h>

#include <string>

#include "refhost/base/OVMutexImpl.h"
#include "support/OVMutexManager.h"

/// Reads the diagnostics of a mutex.
class OVMutexInspector
{
public:
    /// "file:line" of the present holder, or "free".
    static std::string holder(const OVMutex& mutex)
    {
        const char* const file = mutex.impl_->file.load();
        return file == nullptr ? "free" : std::string(file) + ":" + std::to_string(mutex.impl_->line.load());
    }
};

TEST(OVMutex, RecordsFileAndLineOfItsHolder)
{
    OVMutex mutex;
    EXPECT_EQ("free", OVMutexInspector::holder(mutex));
    {
        const OVMutexManager guard(mutex, "Owner.cpp", 12);
        EXPECT_EQ("Owner.cpp:12", OVMutexInspector::holder(mutex));
    }
    EXPECT_EQ("free", OVMutexInspector::holder(mutex));
    mutex.Lock("Other.cpp", 7);
    EXPECT_EQ("Other.cpp:7", OVMutexInspector::holder(mutex));
    mutex.Unlock("Other.cpp", 8);
    EXPECT_EQ(0, mutex.Init());
    EXPECT_EQ("free", OVMutexInspector::holder(mutex));
}
