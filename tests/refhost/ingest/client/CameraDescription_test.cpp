#include "refhost/ingest/client/CameraDescription.h"

#include <gmock/gmock.h>

namespace refhost
{
namespace
{

using testing::ElementsAre;
using testing::Pair;

CameraDescription read(const std::string& text)
{
    const CameraUrl url = *CameraUrl::parse("rtsp://guard:s3cret@h/live");
    return CameraDescription::read(text, url, url.target);
}

TEST(CameraDescription, TracksAreReadWithTheirParameters)
{
    const auto description = read(
        "v=0\r\no=- 0 0 IN IP4 0.0.0.0\r\ns=x\r\na=range:npt=now-\r\na=control:*\r\n"
        "m=video 0 RTP/AVP 96 97\r\nb=AS:500\r\na=rtpmap:97 other/1\r\na=rtpmap:96 H264/90000\r\n"
        "a=fmtp:96 packetization-mode=1; Sprop-Parameter-Sets=Z0IA==,aM4=;flag;=x\r\na=fmtp:97 "
        "a=b\r\na=control:trackID=0\r\n"
        "m=audio 5004/2 RTP/AVP 97\r\na=rtpmap:97 MPEG4-GENERIC/48000/2\r\na=control:trackID=1\r\n"
        "m=application 0 RTP/AVP 107\r\na=rtpmap:107 vnd.onvif.metadata/90000\r\na=control:trackID=2\r\n"
        "m=audio 0 RTP/AVP 0\r\na=sendonly\r\na=control:trackID=3\r\n");
    EXPECT_EQ(description.control, "rtsp://h/live");
    ASSERT_EQ(description.tracks.size(), 4U);
    const CameraTrack& video = description.tracks[0];
    EXPECT_EQ(video.kind, MediaKind::video);
    EXPECT_EQ(video.encodingName, "H264");
    EXPECT_EQ(video.payloadType, 96);
    EXPECT_EQ(video.clockRate, 90000);
    EXPECT_EQ(video.channels, 1);
    EXPECT_THAT(video.formatParameters, ElementsAre(Pair("flag", ""), Pair("packetization-mode", "1"),
                                                    Pair("sprop-parameter-sets", "Z0IA==,aM4=")));
    EXPECT_EQ(video.control, "rtsp://h/live/trackID=0");
    EXPECT_FALSE(video.backChannel);
    EXPECT_EQ(description.tracks[1].kind, MediaKind::audio);
    EXPECT_EQ(description.tracks[1].channels, 2);
    EXPECT_EQ(description.tracks[2].kind, std::nullopt);
    EXPECT_EQ(description.tracks[3].encodingName, "PCMU");
    EXPECT_EQ(description.tracks[3].clockRate, 8000);
    EXPECT_TRUE(description.tracks[3].backChannel);
}

TEST(CameraDescription, SloppyLinesAreRead)
{
    for (const char* text : {
             "m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\n",
             "M=Video  0  RTP/AVP  96 \r\nA=RTPMAP: 96  H264 / 90000 \r\n",
             "rubbish\r\n\r\nm=video 0 RTP/AVP 96\r\n\r\nx\r\na=rtpmap:96 H264/90000/\r\n",
             "m=video 0 RTP/SAVP 96\r\na=rtpmap:96\tH264/90000/x",
         })
    {
        const auto description = read(text);
        ASSERT_EQ(description.tracks.size(), 1U) << text;
        EXPECT_EQ(description.tracks[0].encodingName, "H264");
        EXPECT_EQ(description.tracks[0].clockRate, 90000);
    }
}

TEST(CameraDescription, ATrackThatIsNotUnderstoodHidesNoOther)
{
    const auto description = read(
        "m=video 0 RTP/AVP x\r\na=control:wrong\r\nm=video 0 RTP/AVP 96\r\na=control:wrong\r\n"
        "m=audio 0 RTP/AVP 8\r\na=control:right\r\n");
    ASSERT_EQ(description.tracks.size(), 1U);
    EXPECT_EQ(description.tracks[0].control, "rtsp://h/live/right");
}

TEST(CameraDescription, ChannelsThatNobodyCanMeanAreBounded)
{
    const std::pair<const char*, int> cases[] = {{"0", 1}, {"-1", 1}, {"2", 2}, {"99999", 255}, {"x", 1}};
    for (const auto& [channels, expected] : cases)
    {
        const auto description =
            read("m=audio 0 RTP/AVP 96\r\na=rtpmap:96 L16/8000/" + std::string(channels) + "\r\n");
        ASSERT_EQ(description.tracks.size(), 1U);
        EXPECT_EQ(description.tracks[0].channels, expected) << channels;
    }
}

TEST(CameraDescription, TracksAndParametersAreBounded)
{
    std::string text;
    for (int i = 0; i < 100; ++i)
    {
        text += "m=audio 0 RTP/AVP 0\r\na=fmtp:0 ";
        for (int j = 0; j < 100; ++j)
        {
            text += "p" + std::to_string(j) + "=1;";
        }
        text += "\r\n";
    }
    const auto description = read(text);
    ASSERT_EQ(description.tracks.size(), CameraDescription::maxTracks);
    EXPECT_EQ(description.tracks[0].formatParameters.size(), CameraDescription::maxParameters);
}

TEST(CameraDescription, EveryPrefixIsRead)
{
    const std::string text =
        "v=0\r\na=control:*\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=fmtp:96 a=b;c=d\r\n";
    for (std::size_t size = 0; size <= text.size(); ++size)
    {
        EXPECT_LE(read(text.substr(0, size)).tracks.size(), 1U);
    }
}

}  // namespace
}  // namespace refhost
