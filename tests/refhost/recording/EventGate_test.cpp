#include "refhost/recording/EventGate.h"

#include <gmock/gmock.h>

#include <cmath>
#include <string>

#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace
{

using std::chrono::seconds;

class EventGateTest : public testing::Test
{
protected:
    /// Frames of [begin, end) seconds, 25 a second, with key frames so many apart.
    void give(double begin, double end, int gop = 25, std::size_t bytes = 1000)
    {
        for (auto i = static_cast<int>(std::lround(begin * 25)); i < std::lround(end * 25); ++i)
        {
            gate.take(made.frame(i / 25.0, i % gop == 0, bytes), out);
            if (audio)
            {
                gate.take(made.block(i / 25.0), out);
            }
        }
    }

    /// The ranges of video in `out`, in seconds: "2.00-4.96" up to the last frame, and "|" for an interruption.
    std::string given()
    {
        std::string text;
        double last = -1;
        for (const EncodedUnitPtr& unit : out)
        {
            if (!unit)
            {
                text += "|";
                last = -1;
                continue;
            }
            if (!isVideo(unit->format->codec))
            {
                continue;
            }
            const double time =
                std::chrono::duration<double>(unit->captureTime - MadeUnits::capturedAt(0)).count();
            if (last < 0)
            {
                text += fmt(time) + (unit->keyFrame ? "-" : "?-");
            }
            else
            {
                text.resize(text.size() - 5);
            }
            text += fmt(time);
            last = time;
        }
        out.clear();
        return text;
    }

    static std::string fmt(double time)
    {
        std::string text(16, '\0');
        text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%05.2f", time)));
        return text;
    }

    void event(double time, const std::optional<Duration>& after = {})
    {
        gate.open(MadeUnits::capturedAt(time), after, out);
    }

    MadeUnits made;
    bool audio = false;
    ByteBudget budget{std::size_t{1} << 30U};
    EventGate gate{EventGate::Rolls{seconds(3), seconds(2)}, budget};
    EventGate::Units out;
};

TEST_F(EventGateTest, NothingPassesWithoutAnEvent)
{
    give(0, 60);
    EXPECT_EQ(given(), "");
    EXPECT_FALSE(gate.isOpen());
}

TEST_F(EventGateTest, AnEventGivesTheTimeBeforeItFromAKeyFrameOn)
{
    give(0, 10.4);
    event(10.4);
    EXPECT_EQ(given(), "07.00-10.36");
    EXPECT_TRUE(gate.isOpen());
    EXPECT_EQ(gate.bytes(), 0U);
    EXPECT_EQ(budget.used(), 0U);
}

TEST_F(EventGateTest, ItClosesWithTheFirstKeyFrameAfterThePostRoll)
{
    give(0, 10.4);
    event(10.4);
    give(10.4, 30);
    EXPECT_EQ(given(), "07.00-12.96|");
    EXPECT_FALSE(gate.isOpen());
}

TEST_F(EventGateTest, EventsInBetweenProlongIt)
{
    give(0, 10.4);
    event(10.4);
    give(10.4, 12);
    event(12);
    event(12, seconds(1));
    EXPECT_EQ(gate.until(), MadeUnits::capturedAt(14));
    event(12, seconds(8));
    give(12, 30);
    EXPECT_EQ(given(), "07.00-19.96|");
}

TEST_F(EventGateTest, AnEventSoonAfterTheEndGoesOnWithoutAGapAndGivesNothingTwice)
{
    give(0, 10.4);
    event(10.4);
    give(10.4, 13.4);
    EXPECT_EQ(given(), "07.00-12.96|");
    event(13.4);
    give(13.4, 14);
    EXPECT_EQ(given(), "13.00-13.96");
}

TEST_F(EventGateTest, WithoutKeyFramesItClosesAllTheSame)
{
    give(0, 1, 100000);
    event(1);
    give(1, 60, 100000);
    EXPECT_EQ(given(), "00.00-12.96|");
    event(60);
    EXPECT_EQ(given(), "");
    give(60, 61, 100000);
    // It is open, but nothing can be decoded before the next key frame: the recorder leaves it out.
    EXPECT_TRUE(gate.isOpen());
}

TEST_F(EventGateTest, NoTimeBeforeIsThePresentGop)
{
    gate.setRolls(EventGate::Rolls{seconds(0), seconds(1)}, MadeUnits::capturedAt(0), out);
    give(0, 10.4);
    event(10.5);
    EXPECT_EQ(given(), "10.00-10.36");
}

TEST_F(EventGateTest, ALongGopIsHeldAsAWhole)
{
    give(0, 35, 250);
    event(35);
    EXPECT_EQ(given(), "30.00-34.96");
    give(35, 42, 250);
    event(42);
    EXPECT_EQ(given(), "35.00?-39.96|40.00-41.96");
}

TEST_F(EventGateTest, AnInterruptionIsGivenWhereItWasAndOldMediaAreNot)
{
    give(0, 10);
    gate.interrupt(out);
    give(11, 12);
    event(12);
    EXPECT_EQ(given(), "09.00-09.96|11.00-11.96");

    gate.interrupt(out);
    give(300, 301);
    EXPECT_EQ(given(), "||");
    gate.interrupt(out);
    event(700);
    EXPECT_EQ(given(), "");
    EXPECT_EQ(gate.bytes(), 0U);
}

TEST_F(EventGateTest, ASourceThatFellSilentGivesNothingOld)
{
    give(0, 10);
    event(14);
    EXPECT_EQ(given(), "09.00-09.96");
    give(20, 22);
    give(30, 40);
    EXPECT_EQ(given(), "|");
    event(400);
    EXPECT_EQ(given(), "");
}

TEST_F(EventGateTest, TimesThatJumpBackForgetWhatWasHeld)
{
    give(100, 110);
    give(0, 2);
    event(2);
    EXPECT_EQ(given(), "00.00-01.96");
}

TEST_F(EventGateTest, AudioGoesWithTheFramesOfItsTime)
{
    audio = true;
    give(0, 9.96);
    gate.take(made.block(10.02), out);  // before its key frame
    give(10, 12.6);
    event(13);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[0]->captureTime, MadeUnits::capturedAt(10.02));
    EXPECT_EQ(given(), "10.00-12.56");
}

TEST_F(EventGateTest, AudioAloneIsHeldInSeconds)
{
    for (int i = 0; i < 1000; ++i)
    {
        gate.take(made.block(i * 0.02), out);
    }
    EXPECT_TRUE(out.empty());
    event(20);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[0]->captureTime, MadeUnits::capturedAt(17));
    EXPECT_EQ(out.size(), 150U);
}

TEST_F(EventGateTest, BytesAreBoundedAndTheOldestGopGoes)
{
    give(0, 60, 25, 1U << 20U);
    EXPECT_LE(gate.bytes(), EventGate::maxBytes);
    EXPECT_EQ(budget.used(), gate.bytes());
    EXPECT_TRUE(gate.takeShortage());
    EXPECT_FALSE(gate.takeShortage());
    event(60);
    // 64 frames of 1 MiB do not fit: with 25 a second, two GOPs do.
    EXPECT_EQ(given(), "58.00-59.96");
    EXPECT_EQ(budget.used(), 0U);
}

TEST_F(EventGateTest, TheBudgetOfAllStreamsIsKept)
{
    ByteBudget small(50000);
    EventGate first(EventGate::Rolls{seconds(3), seconds(2)}, small);
    EventGate second(EventGate::Rolls{seconds(3), seconds(2)}, small);
    for (int i = 0; i < 250; ++i)
    {
        const EncodedUnitPtr unit = made.frame(i / 25.0, i % 5 == 0);
        first.take(unit, out);
        second.take(unit, out);
        ASSERT_LE(small.used(), 50000U);
        ASSERT_EQ(small.used(), first.bytes() + second.bytes());
    }
    first.open(MadeUnits::capturedAt(10), {}, out);
    ASSERT_FALSE(out.empty());
    EXPECT_TRUE(out[0]->keyFrame);
    second.clear();
    EXPECT_EQ(small.used(), 0U);
}

TEST_F(EventGateTest, AUnitLargerThanTheBoundIsLeftOut)
{
    give(0, 1);
    gate.take(made.frame(1, true, EventGate::maxBytes), out);
    EXPECT_EQ(gate.bytes(), 0U);
    EXPECT_EQ(budget.used(), 0U);
    give(1.04, 4);
    event(4);
    EXPECT_EQ(given(), "02.00-03.96");
}

TEST_F(EventGateTest, EverythingPassesOnceItIsToBeRecorded)
{
    give(0, 10.4);
    gate.setRolls(std::nullopt, MadeUnits::capturedAt(10.4), out);
    give(10.4, 20.4);
    EXPECT_EQ(given(), "07.00-20.36");
    event(20);
    gate.setRolls(EventGate::Rolls{seconds(1), seconds(1)}, MadeUnits::capturedAt(20.4), out);
    give(20.4, 25);
    EXPECT_EQ(given(), "20.40?-20.96|");
}

}  // namespace
}  // namespace refhost
