#include "refhost/recording/SegmentPath.h"

#include <gtest/gtest.h>

#include <ostream>

namespace refhost
{
namespace
{

struct Moment
{
    const char* path;
    WallTime begin;

    friend std::ostream& operator<<(std::ostream& out, const Moment& moment)
    {
        return out << moment.path;
    }
};

class SegmentPathTest : public testing::TestWithParam<Moment>
{
};

TEST_P(SegmentPathTest, NamesCameraStreamAndBegin)
{
    SegmentPath path;
    path.cameraId = 7;
    path.streamId = 1;
    path.begin = GetParam().begin;
    EXPECT_EQ(path.toString(), GetParam().path);
}

TEST_P(SegmentPathTest, IsReadAsItIsWritten)
{
    const auto found = SegmentPath::parse(GetParam().path);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->cameraId, 7);
    EXPECT_EQ(found->streamId, 1);
    EXPECT_EQ(found->begin, GetParam().begin);
}

// With a 32-bit time_t dates would end in January 2038.
INSTANTIATE_TEST_SUITE_P(
    Moments, SegmentPathTest,
    testing::Values(Moment{"7/1/19700101T000000.000000Z.mkv", WallTime()},
                    Moment{"7/1/20261121T161549.123456Z.mkv",
                           wallTimeOfUnix(1795277749) + std::chrono::microseconds(123456)},
                    Moment{"7/1/20400229T235959.999999Z.mkv",
                           wallTimeOfUnix(2214172799) + std::chrono::microseconds(999999)}));

TEST(SegmentPathParseTest, OtherNamesAreRefused)
{
    for (const char* path :
         {"", "index.db", "7/1/x.mkv", "1/20261121T161549.000000Z.mkv", "7/1/20261121T161561.000000Z.mkv",
          "7/1/20261321T161549.000000Z.mkv", "7/1/20261121T161549.000Z.mkv",
          "7/1/20261121T161549.000000Z.mkv.tmp", "7/1/20261121T161549.000000Z.mkv2",
          "7/1/ 20261121T16154.000000Z.mkv", "-7/1/20261121T161549.000000Z.mkv",
          "07/1/20261121T161549.000000Z.mkv", "7/1/99991231T235959.000000Z.mkv"})
    {
        EXPECT_FALSE(SegmentPath::parse(path)) << path;
    }
}

}  // namespace
}  // namespace refhost
