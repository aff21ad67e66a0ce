#include "refhost/talkback/outputs/ClockedOutput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "refhost/talkback/outputs/WavOutput.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/talkback/AudioSamples.h"

using namespace refhost;
using refhost::test::ManualClock;
using refhost::test::Samples;

namespace
{

const PcmFormat format{8000, 1};

Samples audioOf(const std::string& path)
{
    const test::Bytes bytes = test::readFile(path);
    return bytes.size() < 44 ? Samples{-1} : test::samplesOf(test::Bytes(bytes.begin() + 44, bytes.end()));
}

void append(Samples& audio, std::size_t count, std::int16_t value)
{
    audio.insert(audio.end(), count, value);
}

/// A clock that advances by a millisecond whenever it is read.
class RestlessClock : public HostClock
{
public:
    MonotonicTime now() const override
    {
        return MonotonicTime(std::chrono::milliseconds(++ms_));
    }

    WallTime wallNow() const override
    {
        return WallTime(now().time_since_epoch());
    }

private:
    mutable std::int64_t ms_ = 0;
};

bool writeMs(AudioOutput& output, int ms, std::int16_t value)
{
    const Samples samples(static_cast<std::size_t>(ms) * 8, value);
    return output.write(samples.data(), samples.size());
}

}  // namespace

TEST(ClockedOutput, AudioPassesAtThePaceOfTheClock)
{
    ManualClock clock;
    ClockedOutput output(clock);
    std::string problem;
    ASSERT_TRUE(output.open(format, problem));
    EXPECT_EQ(0u, output.queued());
    EXPECT_TRUE(writeMs(output, 50, 1));
    EXPECT_EQ(400u, output.queued());
    clock.advance(std::chrono::milliseconds(20));
    EXPECT_EQ(240u, output.queued());
    EXPECT_TRUE(writeMs(output, 10, 1));
    EXPECT_EQ(320u, output.queued());
    clock.advance(std::chrono::milliseconds(1000));
    EXPECT_EQ(0u, output.queued());
    EXPECT_TRUE(writeMs(output, 10, 1));
    EXPECT_EQ(80u, output.queued()) << "after a silence audio starts now";
}

TEST(ClockedOutput, HasNothingQueuedWhileItIsDryThoughTheClockGoesOn)
{
    const RestlessClock clock;
    ClockedOutput output(clock);
    std::string problem;
    ASSERT_TRUE(output.open(format, problem));
    EXPECT_EQ(0u, output.queued());
    EXPECT_TRUE(writeMs(output, 1, 1));
    EXPECT_EQ(0u, output.queued());
}

TEST(ClockedOutput, IsExactAfterMonths)
{
    ManualClock clock;
    ClockedOutput output(clock);
    std::string problem;
    ASSERT_TRUE(output.open({48000, 1}, problem));
    clock.advance(std::chrono::milliseconds(100LL * 86400 * 1000));
    const Samples samples(480, 1);
    output.write(samples.data(), samples.size());
    clock.advance(std::chrono::milliseconds(5));
    EXPECT_EQ(240u, output.queued());
}

TEST(WavOutput, AudioStandsAtItsTimeWithSilenceBetween)
{
    const TemporaryFolder folder;
    ManualClock clock;
    std::string problem;
    Samples expected;
    {
        WavOutput output(folder / "talk.wav", clock);
        ASSERT_TRUE(output.open(format, problem)) << problem;
        clock.advance(std::chrono::milliseconds(10));
        EXPECT_TRUE(writeMs(output, 20, 1));
        EXPECT_TRUE(writeMs(output, 20, 2));
        clock.advance(std::chrono::milliseconds(90));
        EXPECT_EQ(0u, output.queued());
        EXPECT_TRUE(writeMs(output, 10, 3));
        clock.advance(std::chrono::milliseconds(50));
        output.close();
    }
    append(expected, 80, 0);
    append(expected, 160, 1);
    append(expected, 160, 2);
    append(expected, 400, 0);
    append(expected, 80, 3);
    append(expected, 320, 0);
    EXPECT_EQ(expected, audioOf(folder / "talk.wav"));
}

TEST(WavOutput, ConsecutiveBlocksLeaveNoGapWhileTheClockGoesOn)
{
    const TemporaryFolder folder;
    const RestlessClock clock;
    std::string problem;
    {
        WavOutput output(folder / "talk.wav", clock);
        ASSERT_TRUE(output.open(format, problem)) << problem;
        EXPECT_TRUE(writeMs(output, 20, 1));
        EXPECT_TRUE(writeMs(output, 20, 2));
        output.close();
    }
    Samples audio = audioOf(folder / "talk.wav");
    audio.erase(audio.begin(), std::find(audio.begin(), audio.end(), 1));
    Samples expected(160, 1);
    append(expected, 160, 2);
    EXPECT_EQ(expected, audio);
}

TEST(WavOutput, SecondOpeningContinuesTheFile)
{
    const TemporaryFolder folder;
    ManualClock clock;
    std::string problem;
    Samples expected;
    {
        WavOutput output(folder / "talk.wav", clock);
        for (const std::int16_t value : Samples{1, 2})
        {
            ASSERT_TRUE(output.open(format, problem)) << problem;
            EXPECT_EQ(0u, output.queued());
            EXPECT_TRUE(writeMs(output, 10, value));
            clock.advance(std::chrono::milliseconds(20));
            output.close();
            clock.advance(std::chrono::milliseconds(60000));
            append(expected, 80, value);
            append(expected, 80, 0);
        }
    }
    EXPECT_EQ(expected, audioOf(folder / "talk.wav")) << "while it is closed no time passes in it";
}

TEST(WavOutput, TakesNothingWhileItIsClosed)
{
    const TemporaryFolder folder;
    ManualClock clock;
    WavOutput output(folder / "talk.wav", clock);
    EXPECT_FALSE(output.queued());
    EXPECT_FALSE(writeMs(output, 10, 1));
    output.close();
    std::string problem;
    ASSERT_TRUE(output.open(format, problem));
    output.close();
    EXPECT_FALSE(output.queued());
    EXPECT_FALSE(writeMs(output, 10, 1));
}

TEST(WavOutput, FullFileIsAFault)
{
    const TemporaryFolder folder;
    ManualClock clock;
    WavOutput output(folder / "talk.wav", clock);
    std::string problem;
    ASSERT_TRUE(output.open(format, problem));
    clock.advance(std::chrono::milliseconds(4LL * 86400 * 1000));
    EXPECT_TRUE(writeMs(output, 10, 1)) << "the writer has to find out yet";
    for (int i = 0; i < 5000 && output.queued(); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_FALSE(output.queued());
    EXPECT_FALSE(writeMs(output, 10, 1));
    output.close();
    EXPECT_TRUE(output.open(format, problem)) << "nothing was put into it: " << problem;
}

TEST(WavOutput, UncreatableFileIsReported)
{
    const TemporaryFolder folder;
    ManualClock clock;
    WavOutput output(folder / "none/talk.wav", clock);
    std::string problem;
    EXPECT_FALSE(output.open(format, problem));
    EXPECT_NE(std::string::npos, problem.find("No such file or directory"));
    EXPECT_FALSE(output.queued());
}
