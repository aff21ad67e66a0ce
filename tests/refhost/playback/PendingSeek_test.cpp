#include "refhost/playback/PendingSeek.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/TransitionTable.h"

namespace refhost
{
namespace
{

WallTime at(int seconds)
{
    return wallTimeOfUnix(seconds);
}

TEST(SeekState, OnlyARequestedSeekFails)
{
    using S = SeekState;
    test::expectTransitions<S>({S::settled, S::requested, S::failed}, {{S::settled, S::requested},
                                                                       {S::requested, S::settled},
                                                                       {S::requested, S::failed},
                                                                       {S::failed, S::settled},
                                                                       {S::failed, S::requested}});
}

TEST(PendingSeek, IsPendingUntilItsPlaceIsFound)
{
    PendingSeek seek;
    EXPECT_FALSE(seek.pending());
    seek.request({at(5), at(9), false});
    ASSERT_TRUE(seek.pending());
    EXPECT_EQ(seek.search().target.from, at(5));
    seek.finish(seek.search(), true);
    EXPECT_FALSE(seek.pending());
    EXPECT_FALSE(seek.takeFailure());
}

TEST(PendingSeek, AFailureIsReportedOnce)
{
    PendingSeek seek;
    seek.request({at(5), at(9), false});
    seek.finish(seek.search(), false);
    EXPECT_FALSE(seek.pending());
    EXPECT_TRUE(seek.takeFailure());
    EXPECT_FALSE(seek.takeFailure());
}

TEST(PendingSeek, WherePlayingGoesOnThereIsNoFailure)
{
    PendingSeek seek;
    seek.request({at(5), at(9), true});
    seek.finish(seek.search(), false);
    EXPECT_FALSE(seek.pending());
    EXPECT_FALSE(seek.takeFailure());
}

TEST(PendingSeek, TheLastRequestCounts)
{
    PendingSeek seek;
    seek.request({at(5), at(9), false});
    const PendingSeek::Search first = seek.search();
    seek.request({at(6), at(9), false});
    seek.finish(first, false);
    ASSERT_TRUE(seek.pending()) << "the search for the first target says nothing of the second";
    EXPECT_EQ(seek.search().target.from, at(6));
    seek.finish(seek.search(), true);
    EXPECT_FALSE(seek.pending());
}

TEST(PendingSeek, ARequestForgetsTheFailureBefore)
{
    PendingSeek seek;
    seek.request({at(5), at(9), false});
    seek.finish(seek.search(), false);
    seek.request({at(6), at(9), false});
    EXPECT_FALSE(seek.takeFailure());
    EXPECT_TRUE(seek.pending());
}

TEST(PendingSeek, NothingIsFinishedTwice)
{
    PendingSeek seek;
    seek.request({at(5), at(9), false});
    seek.finish(seek.search(), true);
    EXPECT_DEBUG_DEATH(seek.finish(seek.search(), false), "illegal transition");
    EXPECT_FALSE(seek.takeFailure());
}

}  // namespace
}  // namespace refhost
