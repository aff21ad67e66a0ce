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

constexpr auto tableOf(Door)
{
    return StateTable<Door, 3>{"door",
                               {{{Door::open, "open", anyOf(Door::closed)},
                                 {Door::closed, "closed", anyOf(Door::open, Door::locked)},
                                 {Door::locked, "locked", anyOf(Door::closed)}}}};
}

TEST(StateMachine, ReadsNamesAndTransitionsInTheTable)
{
    EXPECT_STREQ(nameOf(Door::closed), "closed");
    EXPECT_STREQ(nameOf(static_cast<Door>(3)), "?");
    EXPECT_TRUE(mayFollow(Door::open, Door::closed));
    EXPECT_FALSE(mayFollow(Door::open, Door::locked));
    EXPECT_FALSE(mayFollow(static_cast<Door>(3), Door::open));
}

TEST(StateMachine, FollowsListedTransitions)
{
    StateMachine<Door> door(Door::open);
    EXPECT_TRUE(door.is(Door::open));
    EXPECT_TRUE(door.enter(Door::closed));
    EXPECT_TRUE(door.enter(Door::locked));
    EXPECT_EQ(door.state(), Door::locked);
}

TEST(StateMachine, EnteringThePresentStateDoesNothing)
{
    StateMachine<Door> door(Door::locked);
    EXPECT_TRUE(door.enter(Door::locked));
    EXPECT_TRUE(door.is(Door::locked));
}

TEST(StateMachine, IllegalTransitionFailsAnAssertionOrIsRefused)
{
    StateMachine<Door> door(Door::open);
    EXPECT_DEBUG_DEATH(door.enter(Door::locked), "illegal transition");
    EXPECT_TRUE(door.is(Door::open));
}

}  // namespace
}  // namespace refhost
