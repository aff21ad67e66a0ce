#include "refhost/ingest/RefusalLog.h"

#include <gmock/gmock.h>

#include <optional>

#include "tests/CapturedErrors.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::SizeIs;

class RefusalLogTest : public testing::Test
{
protected:
    void refuse(Duration at, const char* why)
    {
        log->onRefused(why, MonotonicTime(at));
    }
    void take(Duration at)
    {
        log->onTaken(MonotonicTime(at));
    }

    std::optional<RefusalLog> log{std::in_place, "camera 7/2: the camera's H264"};
    CapturedErrors lines;
};

TEST_F(RefusalLogTest, TakenPacketsAreNotLogged)
{
    for (int i = 0; i < 1000; ++i)
    {
        take(i * 1s);
    }
    log.reset();
    EXPECT_THAT(lines.linesWith("camera"), SizeIs(0));
}

TEST_F(RefusalLogTest, StartAndEndOfRefusalsAreOneLineEach)
{
    for (int i = 0; i < 5000; ++i)
    {
        refuse(i * 1ms, "cut short");
    }
    take(64s);
    take(65s);
    take(66s);
    log.reset();
    const std::vector<std::string> found = lines.linesWith("camera 7/2: the camera's H264: packets are ");
    ASSERT_THAT(found, SizeIs(2));
    EXPECT_THAT(found[0], HasSubstr("warning"));
    EXPECT_THAT(found[0], HasSubstr("packets are refused: cut short"));
    EXPECT_THAT(found[1], HasSubstr("packets are taken again, 5000 were refused"));
}

TEST_F(RefusalLogTest, PacketsThatAreRefusedNowAndThenAreOneState)
{
    for (int i = 0; i < 1000; ++i)
    {
        refuse(i * 2s, "cut short");
        take(i * 2s + 1s);
    }
    log.reset();
    const std::vector<std::string> found = lines.linesWith("camera");
    ASSERT_THAT(found, SizeIs(2));
    EXPECT_THAT(found[1], HasSubstr("1000 packets were refused"));
}

TEST_F(RefusalLogTest, EachReasonIsLoggedOnceUpToABound)
{
    const char* const reasons[] = {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"};
    for (int i = 0; i < 1000; ++i)
    {
        refuse(i * 1ms, reasons[i % 10]);
    }
    EXPECT_THAT(lines.linesWith("packets are refused"), SizeIs(RefusalLog::maxReasons));
}

TEST_F(RefusalLogTest, WhatComesBackIsLoggedAgain)
{
    for (int i = 0; i < 3; ++i)
    {
        refuse(i * 100s, "cut short");
        take(i * 100s + RefusalLog::calm);
    }
    EXPECT_THAT(lines.linesWith("packets are"), SizeIs(6));
}

}  // namespace
}  // namespace refhost
