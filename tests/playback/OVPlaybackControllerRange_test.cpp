#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "tests/playback/PlaybackControllerFixture.h"

namespace
{

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

class OVPlaybackControllerRange : public PlaybackControllerFixture
{
protected:
    ~OVPlaybackControllerRange() noexcept override {}

    struct Range
    {
        double start;
        double end;
        bool operator==(const Range& other) const
        {
            return start == other.start && end == other.end;
        }
        friend std::ostream& operator<<(std::ostream& out, const Range& range)
        {
            return out << range.start << " to " << range.end;
        }
    };

    Range correct(double start, double end)
    {
        Range corrected{-7, -7};
        EXPECT_EQ(
            0, controller_->correctPlayRange(session_, video_, start, end, corrected.start, corrected.end));
        return corrected;
    }

    void recordFrom(double begin, double end)
    {
        useInterval(begin, end);
        controller_ = make("any");
    }

    SafePointer<IRTSPController> controller_;
};

}  // namespace

TEST_F(OVPlaybackControllerRange, LengthIsInWholeSeconds)
{
    recordFrom(1000, 4600.9);
    EXPECT_EQ((Range{0, 3600}), correct(-1, -1));
    recordFrom(1000.9, 1002);
    EXPECT_EQ((Range{0, 1}), correct(-1, -1));
}

TEST_F(OVPlaybackControllerRange, BeginInsideStaysAndTheLengthItselfIsOutside)
{
    recordFrom(1000, 4600.9);
    EXPECT_EQ((Range{0, 3600}), correct(0, 3600));
    EXPECT_EQ((Range{10, 3600}), correct(10, 3600));
    EXPECT_EQ((Range{0.25, 3600}), correct(0.25, 3600));
    EXPECT_EQ((Range{3599.5, 3600}), correct(3599.5, 3600));
    EXPECT_EQ((Range{0, 3600}), correct(3600, 3600));
    EXPECT_EQ((Range{0, 3600}), correct(3600.5, 3600));
    EXPECT_EQ((Range{0, 3600}), correct(-1, 3600));
    EXPECT_EQ((Range{0, 3600}), correct(-0.001, 3600));
}

TEST_F(OVPlaybackControllerRange, EndInsideStaysAndSoDoesTheLengthItself)
{
    recordFrom(1000, 4600.9);
    EXPECT_EQ((Range{0, 0}), correct(0, 0));
    EXPECT_EQ((Range{0, 0.5}), correct(0, 0.5));
    EXPECT_EQ((Range{0, 3600}), correct(0, 3600));
    EXPECT_EQ((Range{0, 3600}), correct(0, 3600.1));
    EXPECT_EQ((Range{0, 3600}), correct(0, 3601));
    EXPECT_EQ((Range{0, 3600}), correct(0, -1));
}

TEST_F(OVPlaybackControllerRange, BoundsAreJudgedEachByItself)
{
    recordFrom(1000, 1100);
    EXPECT_EQ((Range{60, 20}), correct(60, 20));
    EXPECT_EQ((Range{60, 100}), correct(60, 101));
    EXPECT_EQ((Range{0, 20}), correct(100, 20));
}

TEST_F(OVPlaybackControllerRange, BoundsThatAreNoNumbersBecomeTheRecordingsOwn)
{
    recordFrom(1000, 1100);
    EXPECT_EQ((Range{0, 100}), correct(notANumber, notANumber));
    EXPECT_EQ((Range{0, 100}), correct(infinity, infinity));
    EXPECT_EQ((Range{0, 100}), correct(-infinity, -infinity));
}

TEST_F(OVPlaybackControllerRange, RecordingWithoutLengthHasOnlyItsBegin)
{
    recordFrom(1000, 1000.9);
    EXPECT_EQ((Range{0, 0}), correct(0, 0));
    EXPECT_EQ((Range{0, 0}), correct(5, 5));
    EXPECT_EQ((Range{0, 0}), correct(-1, -1));
}

TEST_F(OVPlaybackControllerRange, RecordingThatEndsBeforeItStartsHasANegativeLength)
{
    recordFrom(200, 100);
    EXPECT_EQ((Range{0, -100}), correct(0, 0));
    recordFrom(200, 199.5);
    EXPECT_EQ((Range{0, 0}), correct(0, 0)) << "dropping the fraction leads to 0";
    recordFrom(200, 198.5);
    EXPECT_EQ((Range{0, -1}), correct(0, -1));
}

TEST_F(OVPlaybackControllerRange, LengthThatFitsNoIntegerBecomesTheNearerEndOfTheRange)
{
    recordFrom(0, 2147483646.5);
    EXPECT_EQ((Range{0, 2147483646}), correct(-1, -1));
    recordFrom(0, 2147483648.0);
    EXPECT_EQ((Range{0, 2147483647}), correct(-1, -1));
    recordFrom(0, 1e300);
    EXPECT_EQ((Range{0, 2147483647}), correct(-1, -1));
    recordFrom(0, infinity);
    EXPECT_EQ((Range{0, 2147483647}), correct(-1, -1));
    recordFrom(4294967295.0, 0);
    EXPECT_EQ((Range{0, -2147483648.0}), correct(-1, -1));
    recordFrom(infinity, 0);
    EXPECT_EQ((Range{0, -2147483648.0}), correct(-1, -1));
}

TEST_F(OVPlaybackControllerRange, LengthThatIsNoNumberIsZero)
{
    recordFrom(infinity, infinity);
    EXPECT_EQ((Range{0, 0}), correct(10, 10));
    recordFrom(notANumber, 100);
    EXPECT_EQ((Range{0, 0}), correct(10, 10));
}

TEST_F(OVPlaybackControllerRange, IsCorrectedUnderTheControllersLockAloneWithoutAskingTheHost)
{
    recordFrom(100, 200);
    host_.recordLocks(true);
    correct(0, 10);
    host_.recordLocks(false);
    EXPECT_EQ((std::vector<std::string>{"OVMutex::Lock(OVPlaybackController, 236)",
                                        "OVMutex::Unlock(OVMutexManager.h, 71)"}),
              host_.calls());
}

TEST_F(OVPlaybackControllerRange, DoesNotDependOnSessionAndTrack)
{
    recordFrom(100, 200);
    double start = -7;
    double end = -7;
    EXPECT_EQ(0, controller_->correctPlayRange("no such session", "", 30, 40, start, end));
    EXPECT_EQ(30, start);
    EXPECT_EQ(40, end);
}
