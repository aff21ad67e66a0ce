#include "refhost/rtsp/RangeHeader.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

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
    for (const char* const range : {"",
                                    "npt",
                                    "npt=",
                                    "npt=-",
                                    "npt=5-3",
                                    "npt=5-5",
                                    "npt=abc-",
                                    "npt=0-abc",
                                    "npt=nan-",
                                    "npt=inf-",
                                    "npt=1e3-",
                                    "npt=0x1-",
                                    "npt=1:99-",
                                    "npt=1:2:3:4-",
                                    "npt=1,5-",
                                    "npt=--5",
                                    "npt=+1-",
                                    "npt=0-end",
                                    "npt=99999999999999999999-",
                                    "npt=.5-",
                                    "=0-",
                                    "n p t=0-",
                                    "npt=1-2-3"})
    {
        EXPECT_EQ(RangeHeader::checkLive(range), rtspInvalidRange) << range;
    }
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
    const std::string range = "npt=1:02:03.456-1:02:04.5;time=19970123T143720Z";
    for (std::size_t size = 0; size < range.size(); ++size)
    {
        const RtspStatus status = RangeHeader::checkLive(range.substr(0, size));
        EXPECT_TRUE(status == rtspOk || status == rtspInvalidRange) << range.substr(0, size);
    }
}

}  // namespace
}  // namespace refhost
