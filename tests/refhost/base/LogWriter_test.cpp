#include "refhost/base/LogWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <string>

namespace refhost
{
namespace
{

using std::chrono::steady_clock;

std::string lostLine(std::size_t count)
{
    return "lost " + std::to_string(count) + "\n";
}

class LogWriterTest : public testing::Test
{
protected:
    LogWriterTest()
    {
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    }
    ~LogWriterTest() override
    {
        close(ends[0]);
        if (ends[1] >= 0)
        {
            close(ends[1]);
        }
    }

    /// Reads until `count` bytes are there, or none comes for ten seconds.
    std::string read(std::size_t count)
    {
        std::string text;
        pollfd input{ends[0], POLLIN, 0};
        while (text.size() < count && poll(&input, 1, 10000) > 0)
        {
            std::array<char, 65536> some{};
            const ssize_t size = ::read(ends[0], some.data(), some.size());
            if (size <= 0)
            {
                break;
            }
            text.append(some.data(), static_cast<std::size_t>(size));
        }
        return text;
    }

    std::string readToEnd()
    {
        close(ends[1]);
        ends[1] = -1;
        return read(std::string::npos);
    }

    std::array<int, 2> ends{-1, -1};
};

TEST_F(LogWriterTest, WritesLinesInTheirOrder)
{
    LogWriter writer(ends[1], lostLine);
    writer.write("first\n");
    writer.write("second\n");
    EXPECT_TRUE(writer.flush(std::chrono::seconds(10)));
    EXPECT_EQ(read(13), "first\nsecond\n");
}

TEST_F(LogWriterTest, StalledOutputBlocksNobodyAndLostLinesAreCounted)
{
    const std::string line(1000, 'x');
    constexpr std::size_t count = 5000;
    {
        LogWriter writer(ends[1], lostLine);
        const auto before = steady_clock::now();
        for (std::size_t i = 0; i < count; ++i)
        {
            writer.write(line + "\n");
        }
        EXPECT_LT(steady_clock::now() - before, std::chrono::seconds(5));
        // Accepted lines come first, then the count of the lost ones.
        std::string text;
        while (text.find("lost ") == std::string::npos)
        {
            const std::string more = read(1);
            ASSERT_FALSE(more.empty());
            text += more;
        }
        const std::size_t kept = text.find("lost ") / (line.size() + 1);
        EXPECT_EQ(text.substr(text.find("lost ")), lostLine(count - kept));
        EXPECT_GE(kept, LogWriter::maxBytes / (line.size() + 1));
        EXPECT_LE(kept, (LogWriter::maxBytes + 65536 + 4096) / (line.size() + 1) + 1);
        writer.write("again\n");
        EXPECT_EQ(read(6), "again\n");
    }
}

TEST_F(LogWriterTest, QueueIsBounded)
{
    LogWriter writer(ends[1], lostLine);
    // Fills the pipe first, so that further lines stay in the queue.
    writer.write(std::string(200000, 'y') + "\n");
    for (std::size_t i = 0; i < LogWriter::maxLines + 100; ++i)
    {
        writer.write("z\n");
    }
    std::string text;
    while (text.find("lost ") == std::string::npos)
    {
        const std::string more = read(1);
        ASSERT_FALSE(more.empty());
        text += more;
    }
    const auto kept = static_cast<std::size_t>(std::count(text.begin(), text.end(), 'z'));
    EXPECT_GE(kept, LogWriter::maxLines - 1);
    EXPECT_LE(kept, LogWriter::maxLines);
}

TEST_F(LogWriterTest, EndsInTimeWithAStalledOutput)
{
    const auto before = steady_clock::now();
    {
        LogWriter writer(ends[1], lostLine);
        writer.write(std::string(500000, 'x') + "\n");
        EXPECT_FALSE(writer.flush(std::chrono::milliseconds(1)));
    }
    EXPECT_LT(steady_clock::now() - before, std::chrono::seconds(5));
}

TEST_F(LogWriterTest, WritesQueuedLinesBeforeItEnds)
{
    {
        LogWriter writer(ends[1], lostLine);
        for (int i = 0; i < 100; ++i)
        {
            writer.write("line\n");
        }
    }
    EXPECT_EQ(readToEnd().size(), 500U);
}

TEST_F(LogWriterTest, ClosedOutputOnlyLosesLines)
{
    ASSERT_NE(signal(SIGPIPE, SIG_IGN), SIG_ERR);
    close(ends[0]);
    LogWriter writer(ends[1], lostLine);
    writer.write("nobody reads this\n");
    EXPECT_TRUE(writer.flush(std::chrono::seconds(10)));
    ends[0] = -1;
}

}  // namespace
}  // namespace refhost
