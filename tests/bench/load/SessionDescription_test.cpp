#include "bench/load/SessionDescription.h"

#include <gtest/gtest.h>

namespace rtspload
{
namespace
{

TEST(SessionDescription, NamesTheTracksUrls)
{
    const auto description = SessionDescription::parse(
        "v=0\r\na=control:*\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:trackID=0\r\n"
        "m=audio 0 RTP/AVP 0\r\na=control:rtsp://127.0.0.1/other\r\n",
        "rtsp://127.0.0.1/base");

    EXPECT_EQ(description.url, "rtsp://127.0.0.1/base");
    ASSERT_EQ(description.tracks.size(), 2U);
    EXPECT_EQ(description.tracks[0].media, "video");
    EXPECT_EQ(description.tracks[0].encoding, "H264");
    EXPECT_EQ(description.tracks[0].url, "rtsp://127.0.0.1/base/trackID=0");
    EXPECT_EQ(description.tracks[1].media, "audio");
    EXPECT_EQ(description.tracks[1].encoding, "");
    EXPECT_EQ(description.tracks[1].url, "rtsp://127.0.0.1/other");
}

TEST(SessionDescription, BaseMayEndWithASlash)
{
    const auto description =
        SessionDescription::parse("m=video 0 RTP/AVP 96\na=control:t\n", "rtsp://127.0.0.1/base/");
    EXPECT_EQ(description.tracks.at(0).url, "rtsp://127.0.0.1/base/t");
}

}  // namespace
}  // namespace rtspload
