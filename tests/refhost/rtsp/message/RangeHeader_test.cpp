#include "refhost/rtsp/message/RangeHeader.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

using std::chrono::microseconds;
using Unit = RangeHeader::Unit;

TEST(RangeHeader, TakesEveryWellFormedNptRange)
{
    for (const char* const range :
         {"npt=now-", "npt=0-", "npt=0.000-", "npt=12.5-", "npt=1:02:03.5-", "npt=02:03-", "npt=-10",
          "npt=0-10", "npt=3.25-3.5", "npt=now-10", "npt = 0 - 10", "npt=0-;time=19970123T143720Z", "npt=0.-",
          "npt=0.000 - "})
    {
        EXPECT_EQ(RangeHeader::checkLive(range), rtspOk) << range;
    }
}

TEST(RangeHeader, RefusesMalformedAndReversedRanges)
{
    for (const char* const range :
         {"", "npt", "npt=", "npt=-", "npt=5-3", "npt=5-5", "npt=0-abc", "npt=--5", "npt=0-end", "npt=abc",
          "npt=abc-def", "npt=abc-0", "npt=-5-0", "npt=10--5", "npt=99999999999999999999-",
          "npt=99999999999999999999.5-", "=0-", "n p t=0-", "npt=1-2-3"})
    {
        EXPECT_EQ(RangeHeader::checkLive(range), rtspInvalidRange) << range;
    }
}

TEST(RangeHeader, NegativeOrMalformedStartInPlayTimeIsZero)
{
    for (const char* const begin : {"-5", "-0.245", "0.-245", "-1:00", "abc", "nan", "inf", "1e3", "0x1",
                                    "1:99", "1:2:3:4", "1,5", "+1", ".5", "--5"})
    {
        RangeHeader parsed;
        EXPECT_EQ(RangeHeader::parse(std::string("npt=") + begin + "-", parsed), rtspOk) << begin;
        EXPECT_EQ(parsed.begin, microseconds(0)) << begin;
        EXPECT_FALSE(parsed.end) << begin;
        EXPECT_EQ(RangeHeader::parse(std::string("npt=") + begin + " - 12.5", parsed), rtspOk) << begin;
        EXPECT_EQ(parsed.begin, microseconds(0)) << begin;
        EXPECT_EQ(parsed.end, microseconds(12500000)) << begin;
    }
}

TEST(RangeHeader, BackwardsTheLaterEndIsTheStart)
{
    for (const char* const range : {"npt=30-10", "npt=10-30"})
    {
        RangeHeader parsed;
        EXPECT_EQ(RangeHeader::parse(range, parsed, true), rtspOk) << range;
        EXPECT_EQ(parsed.begin, microseconds(30000000));
        EXPECT_EQ(parsed.end, microseconds(10000000));
    }
    RangeHeader parsed;
    EXPECT_EQ(RangeHeader::parse("npt=30-30", parsed, true), rtspInvalidRange);
    EXPECT_EQ(RangeHeader::parse("npt=30-", parsed, true), rtspOk);
    EXPECT_EQ(parsed.begin, microseconds(30000000));
    EXPECT_FALSE(parsed.end);
}

TEST(RangeHeader, ALiveStreamHasNoAbsoluteTimes)
{
    EXPECT_EQ(RangeHeader::checkLive("clock=19961108T142300Z-19961108T143520Z"), rtspInvalidRange);
    EXPECT_EQ(RangeHeader::checkLive("smpte=10:12:33:20-"), rtspInvalidRange);
    EXPECT_EQ(RangeHeader::checkLive("smpte-25=10:12:33:20-"), rtspInvalidRange);
}

TEST(RangeHeader, AnUnknownUnitIsNotImplemented)
{
    EXPECT_EQ(RangeHeader::checkLive("bytes=0-"), rtspNotImplemented);
}

TEST(RangeHeader, NoPrefixDoesHarm)
{
    for (const std::string range : {"npt=1:02:03.456-1:02:04.5;time=19970123T143720Z",
                                    "clock=19961108T142300.5Z-19961108T143520.25Z;time=19970123T143720Z"})
    {
        for (std::size_t size = 0; size < range.size(); ++size)
        {
            RangeHeader parsed;
            const RtspStatus status = RangeHeader::parse(range.substr(0, size), parsed);
            EXPECT_TRUE(status == rtspOk || status == rtspInvalidRange || status == rtspNotImplemented)
                << range.substr(0, size);
        }
    }
}

struct EndsCase
{
    const char* text;
    Unit unit;
    std::int64_t begin;  ///< microseconds; open when negative
    std::int64_t end;
};

TEST(RangeHeader, EndsAreMicrosecondsOrOpen)
{
    constexpr std::int64_t open = -1;
    constexpr std::int64_t clock = 847462980000000;  // 1996-11-08 14:23 UTC
    for (const EndsCase& range : {
             EndsCase{"npt=0-", Unit::npt, 0, open},
             EndsCase{"npt=12.5-13.000001", Unit::npt, 12500000, 13000001},
             EndsCase{"npt=1:02:03.5-2:00:00", Unit::npt, 3723500000, 7200000000},
             EndsCase{"npt=-10", Unit::npt, open, 10000000},
             EndsCase{"npt=now-", Unit::npt, open, open},
             EndsCase{"npt=now-7", Unit::npt, open, 7000000},
             EndsCase{"npt=3-;time=19970123T143720Z", Unit::npt, 3000000, open},
             EndsCase{"clock=19961108T142300Z-", Unit::clock, clock, open},
             EndsCase{"clock=19961108T142300.25Z-19961108T142301Z", Unit::clock, clock + 250000,
                      clock + 1000000},
             EndsCase{"clock = -19961108T142300Z", Unit::clock, open, clock},
         })
    {
        RangeHeader parsed;
        ASSERT_EQ(RangeHeader::parse(range.text, parsed), rtspOk) << range.text;
        EXPECT_EQ(parsed.unit, range.unit) << range.text;
        EXPECT_EQ(parsed.begin.value_or(microseconds(open)), microseconds(range.begin)) << range.text;
        EXPECT_EQ(parsed.end.value_or(microseconds(open)), microseconds(range.end)) << range.text;
    }
}

TEST(RangeHeader, RefusedRangeLeavesTheResultUnchanged)
{
    for (const char* const range :
         {"clock=", "clock=-", "clock=now-", "clock=19961108T142300Z", "clock=19961108T142300-",
          "clock=19961108T142300Z-19961108T142300Z", "clock=19961108T142301Z-19961108T142300Z", "clock=0-",
          "npt=5-3", "smpte=10:12:33:20-", "clock=19961108T142300Z-0"})
    {
        RangeHeader parsed;
        parsed.begin = microseconds(77);
        EXPECT_EQ(RangeHeader::parse(range, parsed), rtspInvalidRange) << range;
        EXPECT_EQ(parsed.begin, microseconds(77)) << range;
        EXPECT_EQ(parsed.unit, Unit::npt) << range;
    }
    RangeHeader parsed;
    EXPECT_EQ(RangeHeader::parse("bytes=0-", parsed), rtspNotImplemented);
}

TEST(RangeHeader, PauseNamesOneInstant)
{
    RangeHeader parsed;
    EXPECT_EQ(RangeHeader::parsePoint("npt=10", parsed), rtspOk);
    EXPECT_EQ(parsed.begin, microseconds(10000000));
    EXPECT_EQ(RangeHeader::parsePoint("npt=1:00 - ;time=19970123T143720Z", parsed), rtspOk);
    EXPECT_EQ(parsed.begin, microseconds(60000000));
    EXPECT_EQ(RangeHeader::parsePoint("clock=19961108T142300.5Z-", parsed), rtspOk);
    EXPECT_EQ(parsed.unit, Unit::clock);
    EXPECT_EQ(parsed.begin, microseconds(847462980500000));
    for (const char* const point : {"", "npt", "npt=", "npt=-", "npt=now", "npt=now-", "npt=-10", "npt=1-2",
                                    "npt=1--", "smpte=10:12:33:20-", "clock=10"})
    {
        EXPECT_EQ(RangeHeader::parsePoint(point, parsed), rtspInvalidRange) << point;
    }
    EXPECT_EQ(RangeHeader::parsePoint("bytes=0-", parsed), rtspNotImplemented);
}

TEST(RangeHeader, IsWrittenInTheRequestedUnit)
{
    std::string out;
    RangeHeader::append(out, Unit::npt, microseconds(12345678), microseconds(60000000));
    EXPECT_EQ(out, "npt=12.345678-60.000");
    out.clear();
    RangeHeader::append(out, Unit::npt, microseconds(-1), std::nullopt);
    EXPECT_EQ(out, "npt=0.000-");
    out.clear();
    RangeHeader::append(out, Unit::clock, microseconds(847462980250000), microseconds(847462981000000));
    EXPECT_EQ(out, "clock=19961108T142300.250Z-19961108T142301.000Z");
    out.clear();
    RangeHeader::append(out, Unit::clock, microseconds(847462980250000), std::nullopt);
    EXPECT_EQ(out, "clock=19961108T142300.250Z-");
}

TEST(RangeHeader, WrittenRangeReadsBack)
{
    for (const Unit unit : {Unit::npt, Unit::clock})
    {
        for (const std::int64_t begin : {std::int64_t{0}, std::int64_t{1}, std::int64_t{3723000001}})
        {
            std::string out;
            RangeHeader::append(out, unit, microseconds(begin), microseconds(begin + 1));
            RangeHeader parsed;
            ASSERT_EQ(RangeHeader::parse(out, parsed), rtspOk) << out;
            EXPECT_EQ(parsed.unit, unit);
            EXPECT_EQ(parsed.begin, microseconds(begin));
            EXPECT_EQ(parsed.end, microseconds(begin + 1));
        }
    }
}

}  // namespace
}  // namespace refhost
