#include "refhost/base/LibraryOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>

#include "tests/CapturedErrors.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::SizeIs;

TEST(LibraryOutput, LinesAreLoggedWithTheirRequest)
{
    CapturedErrors log;
    {
        const LibraryOutput output;
        const std::function<std::string()> text = [] { return "DESCRIBE of 192.0.2.7:4242"; };
        const LibraryOutput::Context context(text);
        std::printf("a line in %s", "parts ");
        std::puts("of a request");
    }
    const auto lines = log.linesWith("of a request");
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], HasSubstr("info"));
    EXPECT_THAT(lines[0], HasSubstr("library: a line in parts of a request (DESCRIBE of 192.0.2.7:4242)"));
}

TEST(LibraryOutput, LinesOfOtherThreadsHaveTheThreadsName)
{
    CapturedErrors log;
    {
        const LibraryOutput output;
        std::thread(
            []
            {
                pthread_setname_np(pthread_self(), "worker");
                std::puts("of a thread");
            })
            .join();
    }
    EXPECT_THAT(log.linesWith("library: of a thread (thread worker)"), SizeIs(1));
}

TEST(LibraryOutput, OneLineOfAKindIsWrittenInTenSeconds)
{
    CapturedErrors log;
    {
        const LibraryOutput output;
        for (int i = 0; i < 30; ++i)
        {
            std::printf("cannot find \"orv/live/%d\", nRet = %d\n", i, -i);
        }
    }
    EXPECT_THAT(log.linesWith("cannot find"), SizeIs(1));
}

TEST(LibraryOutput, KindIgnoresNumbersAndQuotedText)
{
    EXPECT_EQ(LibraryOutput::kindOf("x fail, nRet = -12"), LibraryOutput::kindOf("x fail, nRet = -9"));
    EXPECT_EQ(LibraryOutput::kindOf("no \"a\"!!"), LibraryOutput::kindOf("no \"b/c\"!!"));
    EXPECT_NE(LibraryOutput::kindOf("open fail"), LibraryOutput::kindOf("close fail"));
    EXPECT_LE(LibraryOutput::kindOf(std::string(10000, 'x')).size(), 130U);
}

TEST(LibraryOutput, MisuseOfAHandleIsAnError)
{
    CapturedErrors log;
    {
        const LibraryOutput output;
        std::puts("SafePointer Report:1X Use NULL pointer ->");
    }
    const auto lines = log.linesWith("SafePointer Report:");
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], HasSubstr(" error "));
}

TEST(LibraryOutput, ControlCharactersAndEndlessLinesAreHarmless)
{
    CapturedErrors log;
    {
        const LibraryOutput output;
        std::printf("evil \x1b[31m\r%s\n", std::string(100000, 'e').c_str());
        std::puts("after it");
    }
    const auto lines = log.linesWith("evil");
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_LT(lines[0].size(), 1000U);
    EXPECT_THAT(lines[0], HasSubstr("\\x1b[31m\\x0d"));
    EXPECT_THAT(log.linesWith("after it"), SizeIs(1));
}

TEST(LibraryOutput, StandardOutputIsRestoredAfterwards)
{
    std::FILE* const before = stdout;
    {
        const LibraryOutput output;
        EXPECT_NE(stdout, before);
    }
    EXPECT_EQ(stdout, before);
}

}  // namespace
}  // namespace refhost
