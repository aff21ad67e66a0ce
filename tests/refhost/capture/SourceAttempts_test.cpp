#include "refhost/capture/SourceAttempts.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using Next = SourceAttempts::Next;

class SourceAttemptsTest : public testing::Test
{
protected:
    Next fail(bool otherMeans = false, milliseconds ran = milliseconds(0))
    {
        attempts.onStart(now);
        now += ran;
        return attempts.onFailure(otherMeans, now);
    }

    void expectPause(milliseconds pause) const
    {
        EXPECT_GE(attempts.restartPause(), pause);
        EXPECT_LE(attempts.restartPause(), pause * 3 / 2);
    }

    SourceAttempts attempts{{seconds(1), seconds(2), seconds(5)}};
    SourceAttempts::Clock::time_point now;
};

TEST_F(SourceAttemptsTest, PausesGrowToTheLastOneAndStayThere)
{
    for (const seconds pause : {seconds(1), seconds(2), seconds(5), seconds(5), seconds(5)})
    {
        EXPECT_EQ(fail(), Next::failed);
        expectPause(pause);
    }
}

TEST_F(SourceAttemptsTest, PauseBeforeAnyFailureIsTheFirst)
{
    expectPause(seconds(1));
}

TEST_F(SourceAttemptsTest, PausesStartAgainAfterAGoodRun)
{
    fail();
    fail(false, SourceAttempts::goodRun - milliseconds(1));
    expectPause(seconds(2));
    fail(false, SourceAttempts::goodRun);
    expectPause(seconds(1));
}

TEST_F(SourceAttemptsTest, PausesAreJittered)
{
    fail();
    const milliseconds first = attempts.restartPause();
    bool differs = false;
    for (int i = 0; i < 100 && !differs; ++i)
    {
        differs = attempts.restartPause() != first;
    }
    EXPECT_TRUE(differs);
}

TEST_F(SourceAttemptsTest, OtherMeansAreTriedAtOnceButNotForever)
{
    for (unsigned i = 1; i <= SourceAttempts::maxSwitches; ++i)
    {
        EXPECT_EQ(fail(true), Next::otherMeans);
        EXPECT_EQ(attempts.means(), i);
    }
    EXPECT_EQ(fail(true), Next::failed);
    EXPECT_EQ(attempts.means(), SourceAttempts::maxSwitches + 1) << "the restart tries the next means";
    EXPECT_EQ(fail(true), Next::otherMeans);
}

TEST_F(SourceAttemptsTest, MeansThatFailAfterASwitchAreTriedAgain)
{
    fail(true);
    for (std::size_t i = 0; i < SourceAttempts::maxRepeats; ++i)
    {
        EXPECT_EQ(fail(), Next::again);
        EXPECT_GE(attempts.againPause(), milliseconds(100));
        EXPECT_LE(attempts.againPause(), seconds(1));
    }
    EXPECT_EQ(fail(), Next::failed);
    expectPause(seconds(1));
    EXPECT_EQ(fail(), Next::failed) << "without a switch there is no second try";
    EXPECT_EQ(attempts.means(), 1U);
}

TEST_F(SourceAttemptsTest, SourceThatDeliversIsNotTriedAgainWithoutAPause)
{
    fail(true);
    attempts.onDescribed();
    EXPECT_EQ(fail(), Next::failed);
}

TEST_F(SourceAttemptsTest, NothingIsTriedOnceNobodyWaits)
{
    fail(true);
    attempts.giveUp();
    EXPECT_EQ(fail(), Next::failed);
    attempts.giveUp();
    EXPECT_EQ(fail(true), Next::failed);
    EXPECT_EQ(fail(true), Next::otherMeans);
}

}  // namespace
}  // namespace refhost
