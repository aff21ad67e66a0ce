#include "refhost/base/LogFormat.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "refhost/base/LogWriter.h"

namespace refhost
{
namespace
{

class LogFormatTest : public testing::Test
{
protected:
    ~LogFormatTest() override
    {
        LogFormat::set(LogFormat::Kind::text);
    }

    template <typename Write>
    static std::string captured(const Write& write)
    {
        testing::internal::CaptureStderr();
        write();
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(LogFormatTest, AJsonLineHasTimeLevelThreadAndMessage)
{
    LogFormat::set(LogFormat::Kind::json);
    const std::string line = captured([] { Log::warning("it's \"{}\"\n", "quoted\\"); });
    const std::regex expected(
        R"re(\{"time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d","level":"warning","thread":\d+,)re"
        R"re("message":"it's \\"quoted\\\\\\"\\\\x0a"\}\n)re");
    EXPECT_TRUE(std::regex_match(line, expected)) << line;
}

TEST_F(LogFormatTest, AnEventIsALineOfFields)
{
    using Kind = LogFormat::Field::Kind;
    const auto write = []
    {
        LogFormat::write(
            Log::Level::info, "session-ended",
            {{"address", "::1", Kind::word}, {"user", "a\" b=c\n\x80\\"}, {"bytes", "12", Kind::number}});
    };
    const std::string text = captured(write);
    EXPECT_NE(text.find("] audit: session-ended address=::1 user=\"a\\x22 b=c\\x0a\\x80\\x5c\" bytes=12\n"),
              std::string::npos)
        << text;
    LogFormat::set(LogFormat::Kind::json);
    const std::string json = captured(write);
    EXPECT_NE(json.find(",\"event\":\"session-ended\",\"address\":\"::1\",\"user\":\"a\\\" "
                        "b=c\\u000a\\\\x80\\\\\",\"bytes\":12}\n"),
              std::string::npos)
        << json;
}

TEST_F(LogFormatTest, AnEmptyWordIsADash)
{
    const std::string text = captured(
        [] {
            LogFormat::write(Log::Level::info, "e", {{"a", "", LogFormat::Field::Kind::word}, {"b", ""}});
        });
    EXPECT_NE(text.find("audit: e a=- b=\"\"\n"), std::string::npos) << text;
}

TEST_F(LogFormatTest, ALineAfterAnEventIsAMessageAgain)
{
    LogFormat::set(LogFormat::Kind::json);
    const std::string text = captured(
        []
        {
            LogFormat::write(Log::Level::info, "e", {});
            Log::info("plain");
        });
    EXPECT_NE(text.find(",\"message\":\"plain\"}\n"), std::string::npos) << text;
}

TEST_F(LogFormatTest, TheJournalIsKnownByItsDeviceAndInode)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    struct stat status
    {
    };
    ASSERT_EQ(fstat(ends[1], &status), 0);
    EXPECT_TRUE(LogFormat::isJournal(ends[1], fmt::format("{}:{}", status.st_dev, status.st_ino)));
    EXPECT_FALSE(LogFormat::isJournal(ends[1], fmt::format("{}:{}", status.st_dev, status.st_ino + 1)));
    for (const char* const other : {"", ":", "x", "1:2:3"})
    {
        EXPECT_FALSE(LogFormat::isJournal(ends[1], other)) << other;
    }
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
}  // namespace refhost
