#include "refhost/capture/PipelineRunner.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

#include "tests/TemporaryFolder.h"
#include "tests/refhost/capture/StreamFixture.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* title = "camera 1/0 \"test\"";

class PipelineRunnerTest : public StreamFixture
{
protected:
    PipelineRunnerTest()
    {
        options.describeDeadline = milliseconds(100);
        options.maxSilence = milliseconds(100);
        options.endDeadline = milliseconds(100);
        options.maxAbandoned = 2;
    }

    /// A source whose thread sleeps and cannot be woken, as in a broken driver.
    void useHangingSource(milliseconds hang)
    {
        useLaunchLine(
            "videotestsrc is-live=true ! video/x-raw,width=16,height=16 ! identity name=video sleep-time=" +
            std::to_string(std::chrono::microseconds(hang).count()));
    }

    static bool waitFor(const std::function<bool()>& condition)
    {
        const Clock::time_point deadline = Clock::now() + std::chrono::seconds(20);
        while (!condition())
        {
            if (Clock::now() > deadline)
            {
                return false;
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        return true;
    }
};

TEST_F(PipelineRunnerTest, HangingSourceIsAbandonedAndReplacedUpToTheLimit)
{
    // Long enough that the second one hangs while the first still does, and that a source hangs before it is ended.
    useHangingSource(std::chrono::seconds(8));
    options.maxSilence = milliseconds(700);
    testing::internal::CaptureStderr();
    open();
    const auto video = watch("trackID=0");
    EXPECT_TRUE(waitFor([] { return PipelineRunner::abandoned(title) == 2; }));
    // Two, and those that were ended before they hung.
    const int starts = source->starts();
    EXPECT_GE(starts, 2);
    // The next one waits until one of them ends.
    EXPECT_TRUE(waitFor([this, starts] { return source->starts() > starts; }));
    streams.reset();
    source.reset();
    EXPECT_TRUE(waitFor([] { return PipelineRunner::abandoned() == 0; }));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(
        log, HasSubstr(
                 "camera 1/0 \"test\": the source does not end, it is abandoned; 2 of this stream hang now"));
    EXPECT_THAT(log, HasSubstr("camera 1/0 \"test\": still frozen: too many of its sources hang"));
}

TEST_F(PipelineRunnerTest, StreamsEndInTimeWithAHangingSource)
{
    // Each frame is written to a file before it meets the element that hangs.
    const TemporaryFolder folder;
    const std::string written = folder / "frame";
    useLaunchLine(
        "videotestsrc is-live=true ! video/x-raw,width=16,height=16 ! tee name=frames frames. ! filesink "
        "location=" +
        written +
        " async=false sync=false buffer-mode=unbuffered frames. ! identity name=video sleep-time=5000000");
    options.maxSilence = std::chrono::seconds(20);
    options.describeDeadline = std::chrono::seconds(20);
    options.endDeadline = std::chrono::minutes(1);
    testing::internal::CaptureStderr();
    open();
    const auto video = watch("trackID=0");
    ASSERT_TRUE(
        waitFor([&written] { return std::ifstream(written).peek() != std::ifstream::traits_type::eof(); }));
    const Clock::time_point start = Clock::now();
    source.reset();
    streams.reset();
    EXPECT_LT(Clock::now() - start, milliseconds(2500));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("camera 1/0 \"test\": the source does not end"));
    EXPECT_TRUE(waitFor([] { return PipelineRunner::abandoned() == 0; }));
}

TEST_F(PipelineRunnerTest, AbandonedPipelineDeliversNothing)
{
    useLaunchLine(
        "videotestsrc is-live=true ! video/x-raw,width=16,height=16,framerate=50/1 ! "
        "x264enc tune=zerolatency key-int-max=1 ! identity name=video sleep-time=300000");
    options.describeDeadline = std::chrono::seconds(10);
    options.maxSilence = std::chrono::seconds(10);
    options.endDeadline = milliseconds(20);
    options.linger = milliseconds(0);
    open();
    const auto video = watch("trackID=0");
    ASSERT_TRUE(video->waitForUnits(2));
    source->release();
    ASSERT_TRUE(video->waitForDiscontinuities(1));
    const std::size_t before = video->units().size();
    EXPECT_TRUE(waitFor([] { return PipelineRunner::abandoned() == 0; }));
    EXPECT_EQ(video->units().size(), before);
}

// A limit of threads does not apply to root, so the test changes its user.
TEST_F(PipelineRunnerTest, WithoutThreadsTheStreamFailsAndRecoversLater)
{
    if (::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0)
    {
        GTEST_SKIP() << "no other user to be";
    }
    options.describeDeadline = std::chrono::seconds(10);
    options.maxSilence = std::chrono::seconds(10);
    options.restartPauses = {milliseconds(50)};
    open();
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NPROC, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &none), 0);
    bool limited = false;
    try
    {
        std::thread([] {}).join();
    }
    catch (const std::system_error&)
    {
        limited = true;
    }
    const auto video = watch("trackID=0");
    if (limited)
    {
        EXPECT_TRUE(waitFor([this] { return source->starts() > 2; }));
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &before), 0);
    EXPECT_TRUE(video->waitForUnits(3));
    if (!limited)
    {
        GTEST_SKIP() << "the limit of threads does not hold here";
    }
}

}  // namespace
}  // namespace refhost
