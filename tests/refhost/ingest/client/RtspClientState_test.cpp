#include "refhost/ingest/client/RtspClientState.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/TransitionTable.h"

namespace refhost
{
namespace
{

TEST(RtspClientStateTest, TheTableIsWhatTheHeaderSays)
{
    using S = RtspClientState;
    test::expectTransitions<S>(
        {S::idle, S::connecting, S::asking, S::describing, S::settingUp, S::starting, S::playing,
         S::tearingDown, S::closed},
        {{S::idle, S::connecting},      {S::connecting, S::asking},    {S::connecting, S::describing},
         {S::asking, S::connecting},    {S::asking, S::describing},    {S::describing, S::connecting},
         {S::describing, S::settingUp}, {S::settingUp, S::starting},   {S::settingUp, S::tearingDown},
         {S::starting, S::playing},     {S::starting, S::tearingDown}, {S::playing, S::tearingDown},
         {S::idle, S::closed},          {S::connecting, S::closed},    {S::asking, S::closed},
         {S::describing, S::closed},    {S::settingUp, S::closed},     {S::starting, S::closed},
         {S::playing, S::closed},       {S::tearingDown, S::closed}});
}

}  // namespace
}  // namespace refhost
