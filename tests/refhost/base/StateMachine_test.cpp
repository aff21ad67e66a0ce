#include "refhost/base/StateMachine.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

enum class Door
{
    open,
    closed,
    locked
};

constexpr bool mayFollow(Door from, Door to)
{
    return from == Door::closed || to == Door::closed;
}

constexpr const char* nameOf(Door door)
{
    return door == Door::open ? "open" : door == Door::closed ? "closed" : "locked";
}

constexpr const char* machineOf(Door)
{
    return "door";
}

TEST(StateMachine, GoesAlongListedTransitions)
{
    StateMachine<Door> door(Door::open);
    EXPECT_TRUE(door.is(Door::open));
    EXPECT_TRUE(door.enter(Door::closed));
    EXPECT_TRUE(door.enter(Door::locked));
    EXPECT_EQ(door.state(), Door::locked);
}

TEST(StateMachine, MayStayWhereItIs)
{
    StateMachine<Door> door(Door::locked);
    EXPECT_TRUE(door.enter(Door::locked));
    EXPECT_TRUE(door.is(Door::locked));
}

TEST(StateMachine, AnIllegalTransitionStopsADebugBuildAndIsRefusedInOthers)
{
    StateMachine<Door> door(Door::open);
    EXPECT_DEBUG_DEATH(door.enter(Door::locked), "illegal transition");
    EXPECT_TRUE(door.is(Door::open));
}

}  // namespace
}  // namespace refhost
