#include "refhost/description/MulticastMediaUrl.h"

#include <gtest/gtest.h>

#include "refhost/description/MulticastMediaUrlFactory.h"
#include "support/StatusCode.h"

namespace refhost
{
namespace
{

TEST(MulticastMediaUrl, ReadsCameraAndStream)
{
    MulticastMediaUrl codec;
    ASSERT_EQ(0, codec.parseMulticastMediaUrl("rtsp://192.0.2.1:8554/orv/multicast/12/3"));
    EXPECT_EQ(12, codec.objMediaUrlParam.getCameraID());
    EXPECT_EQ(3, codec.objMediaUrlParam.getStreamID());
    EXPECT_TRUE(codec.objMediaUrlParam.getMulticastFlag());
    EXPECT_EQ("orv/multicast", codec.objMediaUrlParam.getMediaUrlPrefix());
}

TEST(MulticastMediaUrl, ParsedUrlIsRenderedUnchanged)
{
    MulticastMediaUrl codec;
    ASSERT_EQ(0, codec.parseMulticastMediaUrl("x/orv/multicast/1/0"));
    EXPECT_EQ("orv/multicast/1/0", codec.toMulticastMediaUrl());
    EXPECT_EQ("orv/live/1/0", codec.toMediaUrl());
}

TEST(MulticastMediaUrl, OtherTextsAreRefusedWithoutChangingNumbers)
{
    MulticastMediaUrl codec;
    ASSERT_EQ(0, codec.parseMulticastMediaUrl("orv/multicast/7/8"));
    for (const char* url : {"", "orv/multicast", "orv/multicast/", "orv/multicast/1", "orv/multicast/1/",
                            "orv/multicast//0", "orv/live/1/0", "orv/Multicast/1/0", "orv/multicastx/1/0",
                            "orv/multicast/x/0", "orv/multicast/1/x"})
    {
        EXPECT_EQ(statusNotFound, codec.parseMulticastMediaUrl(url)) << url;
        EXPECT_EQ(7, codec.objMediaUrlParam.getCameraID()) << url;
        EXPECT_EQ(8, codec.objMediaUrlParam.getStreamID()) << url;
    }
}

TEST(MulticastMediaUrl, OtherFormsAreThoseOfTheDevicesCodec)
{
    MulticastMediaUrl codec;
    EXPECT_EQ(0, codec.parseMediaUrl("orv/live/1/2"));
    EXPECT_FALSE(codec.objMediaUrlParam.getMulticastFlag());
    EXPECT_EQ(0, codec.parsePlaybackMediaUrl("orv/playback/1_2_3"));
    EXPECT_EQ(statusNotFound, codec.parseMediaUrl("orv/multicast/1/2"));
}

TEST(MulticastMediaUrl, FactoryCreatesSeparateCodecsOfItsOwnType)
{
    MulticastMediaUrlFactory factory;
    SafePointer<IMediaUrl> one;
    SafePointer<IMediaUrl> other;
    ASSERT_EQ(0, factory.createMediaUrl(one));
    ASSERT_EQ(0, factory.createMediaUrl(other));
    EXPECT_NE(one.operator->(), other.operator->());
    EXPECT_EQ(MulticastMediaUrl::thirdPlatType, one->getThirdPlatType());
    EXPECT_NE(OrvaneMediaUrl().getThirdPlatType(), one->getThirdPlatType());
}

}  // namespace
}  // namespace refhost
