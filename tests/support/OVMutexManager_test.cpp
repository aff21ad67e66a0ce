#include "support/OVMutexManager.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

#include "tests/fakehost/OVMutexInspector.h"

TEST(OVMutexManager, LocksWithTheCallersFileAndLine)
{
    OVMutex mutex;
    OVMutexManager guard(mutex, "Caller", 12);
    EXPECT_TRUE(OVMutexInspector::isHeld(mutex));
    EXPECT_EQ("Caller:12", OVMutexInspector::lastLock(mutex));
}

TEST(OVMutexManager, UnlocksWithItsOwnHeaderAndLine71)
{
    OVMutex mutex;
    {
        OVMutexManager guard(mutex, "Caller", 12);
    }
    EXPECT_FALSE(OVMutexInspector::isHeld(mutex));
    EXPECT_EQ("OVMutexManager.h:71", OVMutexInspector::lastUnlock(mutex));
}

TEST(OVMutexManager, UnlocksWhenAnExceptionLeavesTheSection)
{
    OVMutex mutex;
    try
    {
        OVMutexManager guard(mutex, "Caller", 12);
        throw std::runtime_error("out");
    }
    catch (const std::runtime_error&)
    {
    }
    EXPECT_FALSE(OVMutexInspector::isHeld(mutex));
}

TEST(OVMutexManager, IsNeitherCopiedNorMovedAndHoldsOnePointer)
{
    EXPECT_FALSE(std::is_copy_constructible<OVMutexManager>::value);
    EXPECT_FALSE(std::is_move_constructible<OVMutexManager>::value);
    EXPECT_FALSE(std::is_copy_assignable<OVMutexManager>::value);
    EXPECT_EQ(sizeof(void*), sizeof(OVMutexManager));
}
