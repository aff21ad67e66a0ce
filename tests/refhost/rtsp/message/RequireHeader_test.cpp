#include "refhost/rtsp/message/RequireHeader.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace refhost
{
namespace
{

RequireHeader parsed(std::initializer_list<RtspRequest::Header> headers)
{
    RtspRequest request;
    request.headers = headers;
    return RequireHeader::of(request);
}

TEST(RequireHeader, RequestWithoutTheHeaderRequiresNothing)
{
    const RequireHeader require = parsed({{"CSeq", "1"}});
    EXPECT_FALSE(require.backchannel);
    EXPECT_FALSE(require.replay);
    EXPECT_EQ(require.unsupported, "");
}

TEST(RequireHeader, KnownTagsBecomeFlags)
{
    const RequireHeader talk = parsed({{"Require", "www.onvif.org/ver20/backchannel"}});
    EXPECT_TRUE(talk.backchannel);
    EXPECT_FALSE(talk.replay);
    EXPECT_EQ(talk.unsupported, "");
    const RequireHeader replay = parsed({{"require", "onvif-replay"}});
    EXPECT_FALSE(replay.backchannel);
    EXPECT_TRUE(replay.replay);
    EXPECT_EQ(replay.unsupported, "");
}

TEST(RequireHeader, TagsOfSeveralLinesCountTogether)
{
    const RequireHeader require = parsed(
        {{"Require", " , onvif-replay ,,"}, {"CSeq", "1"}, {"Require", "www.onvif.org/ver20/backchannel,"}});
    EXPECT_TRUE(require.backchannel);
    EXPECT_TRUE(require.replay);
    EXPECT_EQ(require.unsupported, "");
}

TEST(RequireHeader, ProxyRequireIsTreatedAsRequire)
{
    const RequireHeader require = parsed({{"Proxy-Require", "onvif-replay, magic"}});
    EXPECT_TRUE(require.replay);
    EXPECT_EQ(require.unsupported, "magic");
}

TEST(RequireHeader, OnlyUnknownTagsAreListedAsUnsupported)
{
    const RequireHeader require = parsed(
        {{"Require", "implicit-play, onvif-replay"}, {"Proxy-Require", "x-one"}, {"Require", "x-two"}});
    EXPECT_TRUE(require.replay);
    EXPECT_EQ(require.unsupported, "implicit-play, x-two, x-one");
}

TEST(RequireHeader, TagsDifferInTheCaseOfTheirLetters)
{
    const RequireHeader require = parsed({{"Require", "ONVIF-Replay"}});
    EXPECT_FALSE(require.replay);
    EXPECT_EQ(require.unsupported, "ONVIF-Replay");
}

TEST(RequireHeader, ReplayMayBeRefusedAsUnsupported)
{
    RequireHeader require = parsed({{"Require", "magic, onvif-replay"}});
    require.refuseReplay();
    EXPECT_FALSE(require.replay);
    EXPECT_EQ(require.unsupported, "magic, onvif-replay");
}

TEST(RequireHeader, LineEndsOfAFoldedLineDoNotGetIntoTheAnswer)
{
    EXPECT_EQ(parsed({{"Require", "a\r\n b,\r\n c"}}).unsupported, "a   b, c");
}

}  // namespace
}  // namespace refhost
