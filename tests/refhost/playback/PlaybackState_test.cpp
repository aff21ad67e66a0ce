#include "refhost/playback/PlaybackState.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/TransitionTable.h"

namespace refhost
{
namespace
{

TEST(PlaybackState, PlaysOnlyFromAPlaceAndEndsOnlyWhilePlaying)
{
    using S = PlaybackState;
    test::expectTransitions<S>({S::unplaced, S::paused, S::playing, S::ended}, {{S::unplaced, S::paused},
                                                                                {S::paused, S::playing},
                                                                                {S::playing, S::paused},
                                                                                {S::playing, S::ended},
                                                                                {S::ended, S::paused}});
}

}  // namespace
}  // namespace refhost
