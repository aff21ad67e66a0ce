#include "refhost/rtp/payload/Depacketizer.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/payload/PayloadFixture.h"

namespace refhost
{
namespace
{

using test::described;
using test::Reception;

TEST(Depacketizer, KnowsWhatItReads)
{
    EXPECT_EQ(Depacketizer::codecOf("h264"), Codec::h264);
    EXPECT_EQ(Depacketizer::codecOf("mpeg4-generic"), Codec::aac);
    EXPECT_EQ(Depacketizer::codecOf("mp4a-latm"), Codec::aac);
    EXPECT_EQ(Depacketizer::codecOf("G726-32"), std::nullopt);
}

TEST(Depacketizer, OtherMediaAreRefusedByName)
{
    const Reception reception(described("vnd.onvif.metadata", 90000));
    EXPECT_EQ(reception.depacketizer, nullptr);
    EXPECT_EQ(reception.error, "media of type vnd.onvif.metadata cannot be read");
}

TEST(Depacketizer, ATrackWithoutClockRateIsRefused)
{
    const Reception reception(described("PCMU", 0));
    EXPECT_EQ(reception.depacketizer, nullptr);
    EXPECT_EQ(reception.error, "the description has no clock rate");
}

TEST(Depacketizer, AnEmptyPayloadIsRefused)
{
    Reception reception(described("PCMU", 8000));
    EXPECT_EQ(reception.push({}, 0, false), "empty payload");
    EXPECT_TRUE(reception.units.empty());
}

}  // namespace
}  // namespace refhost
