#include "refhost/base/Descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace refhost
{
namespace
{

int openAny()
{
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int number)
{
    return ::fcntl(number, F_GETFD) != -1;
}

}  // namespace

TEST(Descriptor, IsClosedByTheDestructor)
{
    const int number = openAny();
    {
        const Descriptor owner(number);
        EXPECT_TRUE(owner);
        EXPECT_EQ(number, owner.get());
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(Descriptor, MovedFromDescriptorOwnsNothing)
{
    const int number = openAny();
    Descriptor first(number);
    const Descriptor second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): moving empties it, by contract
    EXPECT_TRUE(isOpen(number));
    EXPECT_EQ(number, second.get());
}

TEST(Descriptor, AssignmentClosesTheOldDescriptorAtOnce)
{
    const int old = openAny();
    const int fresh = openAny();
    Descriptor owner(old);
    Descriptor other(fresh);
    owner = std::move(other);
    EXPECT_FALSE(isOpen(old));
    EXPECT_TRUE(isOpen(fresh));
    EXPECT_EQ(fresh, owner.get());
    EXPECT_FALSE(other);  // NOLINT(bugprone-use-after-move): moving empties it, by contract
}

TEST(Descriptor, SelfAssignmentKeepsTheDescriptor)
{
    const int number = openAny();
    Descriptor owner(number);
    Descriptor& same = owner;
    owner = std::move(same);
    EXPECT_EQ(number, owner.get());
    EXPECT_TRUE(isOpen(number));
}

TEST(Descriptor, ReleasedDescriptorStaysOpen)
{
    const int number = openAny();
    {
        Descriptor owner(number);
        EXPECT_EQ(number, owner.release());
        EXPECT_FALSE(owner);
    }
    EXPECT_TRUE(isOpen(number));
    ::close(number);
}

TEST(Descriptor, ResetClosesAtOnce)
{
    const int number = openAny();
    Descriptor owner(number);
    owner.reset();
    EXPECT_FALSE(owner);
    EXPECT_FALSE(isOpen(number));
    EXPECT_FALSE(Descriptor());
}

}  // namespace refhost
