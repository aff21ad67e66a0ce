#include "refhost/rtsp/connection/ConnectionState.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/TransitionTable.h"

namespace refhost
{
namespace
{

TEST(ConnectionStateTest, TheTableIsWhatTheHeaderSays)
{
    using S = ConnectionState;
    test::expectTransitions<S>({S::serving, S::deferred, S::congested, S::draining, S::closing, S::closed},
                               {{S::serving, S::deferred},
                                {S::serving, S::congested},
                                {S::serving, S::draining},
                                {S::serving, S::closing},
                                {S::serving, S::closed},
                                {S::deferred, S::serving},
                                {S::deferred, S::closing},
                                {S::deferred, S::closed},
                                {S::congested, S::serving},
                                {S::congested, S::closing},
                                {S::congested, S::closed},
                                {S::draining, S::closing},
                                {S::draining, S::closed},
                                {S::closing, S::closed}});
}

}  // namespace
}  // namespace refhost
