#include "refhost/rtsp/message/SdpWriter.h"

#include <gst/sdp/gstsdpmessage.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/SampleTracks.h"

namespace refhost
{
namespace
{

SubMediaInfo video()
{
    SubMediaInfo track = SampleTracks::video();
    track.formatParameters = "packetization-mode=1;profile-level-id=42C01F";
    track.bitRate = 2000;
    track.frameRate = 12.5;
    return track;
}

MediaInfo presentation()
{
    MediaInfo info;
    info.mediaUrl = "orv/live/1/0";
    info.addSubMediaInfo(video());
    info.addSubMediaInfo(SampleTracks::audio());
    return info;
}

std::string written(const MediaInfo& info, const char* address, bool ipv6)
{
    std::string text;
    SdpWriter(7).append(text, info, {address, ipv6});
    return text;
}

struct FreeSdp
{
    void operator()(GstSDPMessage* message) const
    {
        gst_sdp_message_free(message);
    }
};
using Sdp = std::unique_ptr<GstSDPMessage, FreeSdp>;

Sdp parse(const std::string& text)
{
    GstSDPMessage* message = nullptr;
    gst_sdp_message_new(&message);
    EXPECT_EQ(gst_sdp_message_parse_buffer(reinterpret_cast<const guint8*>(text.data()),
                                           static_cast<guint>(text.size()), message),
              GST_SDP_OK);
    return Sdp(message);
}

TEST(SdpWriter, DescribesVideoAndAudio)
{
    EXPECT_EQ(written(presentation(), "192.0.2.1", false),
              "v=0\r\n"
              "o=- 7 1 IN IP4 192.0.2.1\r\n"
              "s=orv/live/1/0\r\n"
              "c=IN IP4 0.0.0.0\r\n"
              "t=0 0\r\n"
              "a=control:*\r\n"
              "a=range:npt=now-\r\n"
              "m=video 0 RTP/AVP 96\r\n"
              "b=AS:2000\r\n"
              "a=rtpmap:96 H264/90000\r\n"
              "a=fmtp:96 packetization-mode=1;profile-level-id=42C01F\r\n"
              "a=framesize:96 1280-720\r\n"
              "a=x-dimensions:1280,720\r\n"
              "a=framerate:12.5\r\n"
              "a=control:trackID=0\r\n"
              "m=audio 0 RTP/AVP 0\r\n"
              "a=rtpmap:0 PCMU/8000\r\n"
              "a=control:trackID=1\r\n");
}

TEST(SdpWriter, IsReadBackByAnIndependentParser)
{
    const Sdp message = parse(written(presentation(), "192.0.2.1", false));
    ASSERT_EQ(gst_sdp_message_medias_len(message.get()), 2u);
    EXPECT_STREQ(gst_sdp_message_get_attribute_val(message.get(), "control"), "*");
    EXPECT_STREQ(gst_sdp_message_get_attribute_val(message.get(), "range"), "npt=now-");
    const GstSDPMedia* const media = gst_sdp_message_get_media(message.get(), 0);
    EXPECT_STREQ(gst_sdp_media_get_media(media), "video");
    EXPECT_STREQ(gst_sdp_media_get_attribute_val(media, "control"), "trackID=0");
    GstCaps* const caps = gst_sdp_media_get_caps_from_media(media, 96);
    ASSERT_NE(caps, nullptr);
    const GstStructure* const structure = gst_caps_get_structure(caps, 0);
    EXPECT_STREQ(gst_structure_get_string(structure, "encoding-name"), "H264");
    EXPECT_STREQ(gst_structure_get_string(structure, "packetization-mode"), "1");
    gst_caps_unref(caps);
}

TEST(SdpWriter, NamesTheGroupAndTheTracksPorts)
{
    const MulticastDestination destination{*MulticastGroup::parse("239.255.42.7:5004"), 3};
    for (const SdpWriter::Origin& origin :
         {SdpWriter::Origin{"192.0.2.1", false}, SdpWriter::Origin{"2001:db8::1", true}})
    {
        std::string text;
        SdpWriter(7).append(text, presentation(), origin, &destination);
        const Sdp message = parse(text);
        const GstSDPConnection* const connection = gst_sdp_message_get_connection(message.get());
        EXPECT_STREQ(connection->addrtype, "IP4");
        EXPECT_STREQ(connection->address, "239.255.42.7");
        EXPECT_EQ(connection->ttl, 3u);
        EXPECT_EQ(gst_sdp_media_get_port(gst_sdp_message_get_media(message.get(), 0)), 5004u);
        EXPECT_EQ(gst_sdp_media_get_port(gst_sdp_message_get_media(message.get(), 1)), 5006u);
    }
}

TEST(SdpWriter, NamesIpv6Addresses)
{
    const Sdp message = parse(written(presentation(), "2001:db8::1", true));
    EXPECT_STREQ(gst_sdp_message_get_origin(message.get())->addrtype, "IP6");
    EXPECT_STREQ(gst_sdp_message_get_connection(message.get())->address, "::");
}

TEST(SdpWriter, LeavesOutWhatIsNotKnown)
{
    SubMediaInfo track = video();
    track.formatParameters.clear();
    track.width = track.height = track.bitRate = 0;
    track.frameRate = 0;
    MediaInfo info;
    info.addSubMediaInfo(track);
    const std::string text = written(info, "192.0.2.1", false);
    EXPECT_EQ(text.substr(text.find("m=")),
              "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:trackID=0\r\n");
    EXPECT_NE(text.find("\r\ns=-\r\n"), std::string::npos);
}

TEST(SdpWriter, NamesTheChannelsOfStereo)
{
    SubMediaInfo track = SampleTracks::audio();
    track.encodingName = "MPEG4-GENERIC";
    track.payloadType = 97;
    track.clockRate = 48000;
    track.channels = 2;
    MediaInfo info;
    info.addSubMediaInfo(track);
    EXPECT_NE(written(info, "192.0.2.1", false).find("a=rtpmap:97 MPEG4-GENERIC/48000/2\r\n"),
              std::string::npos);
}

TEST(SdpWriter, WritesRatesWithoutTrailingZeros)
{
    for (const auto& [rate, text] : {std::pair(25.0, "25"), std::pair(29.97, "29.97"), std::pair(0.5, "0.5"),
                                     std::pair(23.9761, "23.976")})
    {
        SubMediaInfo track = video();
        track.frameRate = rate;
        MediaInfo info;
        info.addSubMediaInfo(track);
        EXPECT_NE(written(info, "192.0.2.1", false).find(std::string("a=framerate:") + text + "\r\n"),
                  std::string::npos)
            << text;
    }
}

std::string attribute(const GstSDPMessage* message, const char* name, guint number = 0)
{
    const gchar* const value = gst_sdp_message_get_attribute_val_n(message, name, number);
    return value == nullptr ? "" : value;
}

TEST(SdpWriter, WithTalkBackEveryTrackHasItsDirection)
{
    MediaInfo info = presentation();
    SubMediaInfo back = SampleTracks::audio();
    back.trackId = "trackID=talk";
    back.setAudioBackInfoFlag(true);
    info.addSubMediaInfo(back);
    const Sdp sdp = parse(written(info, "192.0.2.1", false));
    ASSERT_EQ(gst_sdp_message_medias_len(sdp.get()), 3u);
    for (const auto& [number, direction] :
         {std::pair(0u, "recvonly"), std::pair(1u, "recvonly"), std::pair(2u, "sendonly")})
    {
        const GstSDPMedia* const media = gst_sdp_message_get_media(sdp.get(), number);
        EXPECT_NE(gst_sdp_media_get_attribute_val(media, direction), nullptr) << number;
    }
    EXPECT_STREQ(gst_sdp_media_get_attribute_val(gst_sdp_message_get_media(sdp.get(), 2), "control"),
                 "trackID=talk");
}

TEST(SdpWriter, WithoutTalkBackThereAreNoDirections)
{
    const std::string text = written(presentation(), "192.0.2.1", false);
    EXPECT_EQ(text.find("only"), std::string::npos) << text;
}

TEST(SdpWriter, ARecordingHasALength)
{
    MediaInfo info = presentation();
    info.recordBeginTime = 1700000000;
    info.recordSeconds = 60;
    const Sdp whole = parse(written(info, "127.0.0.1", false));
    EXPECT_EQ(attribute(whole.get(), "range"), "npt=0-60");
    EXPECT_EQ(attribute(whole.get(), "range", 1), "") << "clients take the last or the first of several";
    EXPECT_EQ(attribute(whole.get(), "length"), "npt=60");
    info.recordSeconds = 3600.25;
    EXPECT_EQ(attribute(parse(written(info, "127.0.0.1", false)).get(), "range"), "npt=0-3600.25");
}

TEST(SdpWriter, ReplayClientGetsAbsoluteTimes)
{
    MediaInfo info = presentation();
    info.recordBeginTime = 1700000000123456700;
    info.recordSeconds = 59.8765433;
    std::string text;
    SdpWriter(7).append(text, info, {"127.0.0.1", false}, nullptr, RangeHeader::Unit::clock);
    const Sdp sdp = parse(text);
    EXPECT_EQ(attribute(sdp.get(), "range"), "clock=20231114T221320.123457Z-20231114T221420.000Z");
    EXPECT_EQ(attribute(sdp.get(), "range", 1), "");
    EXPECT_EQ(attribute(sdp.get(), "length"), "npt=59.876543");
}

TEST(SdpWriter, ALiveStreamHasNoAbsoluteTimes)
{
    std::string text;
    SdpWriter(7).append(text, presentation(), {"127.0.0.1", false}, nullptr, RangeHeader::Unit::clock);
    EXPECT_EQ(attribute(parse(text).get(), "range"), "npt=now-");
}

TEST(SdpWriter, ALiveStreamHasNone)
{
    const Sdp live = parse(written(presentation(), "127.0.0.1", false));
    EXPECT_EQ(attribute(live.get(), "range"), "npt=now-");
    EXPECT_EQ(attribute(live.get(), "length"), "");
}

}  // namespace
}  // namespace refhost
