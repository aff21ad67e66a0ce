#include "refhost/media/Codec.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace refhost
{
namespace
{

TEST(Codec, EveryCodecHasAnEntry)
{
    for (const Codec codec : allCodecs)
    {
        const CodecInfo& info = infoOf(codec);
        EXPECT_EQ(info.codec, codec);
        for (const char* const text : {info.name, info.encodingName, info.libavName, info.acceptedCaps,
                                       info.caps, info.payloader, info.encoder})
        {
            ASSERT_NE(text, nullptr);
            EXPECT_STRNE(text, "");
        }
        EXPECT_EQ(info.kind == MediaKind::audio, info.samplesIn != nullptr) << info.name;
    }
}

TEST(Codec, NamesAreUniqueAndFindTheirCodec)
{
    std::set<std::string> names;
    for (const Codec codec : allCodecs)
    {
        const CodecInfo& info = infoOf(codec);
        EXPECT_TRUE(names.insert(info.name).second);
        EXPECT_EQ(codecNamed(info.name), codec);
        EXPECT_EQ(nameOf(codec), std::string(info.name));
        EXPECT_EQ(codecEncodedAs(info.encodingName), codec);
        EXPECT_EQ(codecInLibav(info.libavName), codec);
    }
    EXPECT_STREQ(nameOf(std::nullopt), "none");
    EXPECT_FALSE(codecNamed("none").has_value());
    EXPECT_FALSE(codecNamed("").has_value());
}

TEST(Codec, EncodingNamesAreFoundInEitherCase)
{
    EXPECT_EQ(codecEncodedAs("h264"), Codec::h264);
    EXPECT_EQ(codecEncodedAs("Mpeg4-Generic"), Codec::aac);
    EXPECT_FALSE(codecEncodedAs("H26").has_value());
    EXPECT_FALSE(codecEncodedAs("H2645").has_value());
    EXPECT_FALSE(codecEncodedAs("").has_value());
}

TEST(Codec, TrackIdsFollowTheKindOfMedia)
{
    EXPECT_STREQ(trackIdOf(Codec::h265), "trackID=0");
    EXPECT_STREQ(trackIdOf(Codec::aac), "trackID=1");
    EXPECT_TRUE(isVideo(Codec::h264));
    EXPECT_FALSE(isVideo(Codec::pcma));
}

TEST(Codec, PayloadTypesAreStaticOrDynamic)
{
    for (const Codec codec : allCodecs)
    {
        const int type = infoOf(codec).payloadType;
        // RFC 3551, section 6: the static ones of this table, or 96 to 127.
        EXPECT_TRUE(type == 0 || type == 8 || type == 26 || (type >= 96 && type <= 127))
            << infoOf(codec).name;
    }
}

TEST(Codec, CountsSamplesOfABlock)
{
    const std::uint8_t block[160] = {};
    EXPECT_EQ(infoOf(Codec::pcmu).samplesIn(block, 160, 1), 160U);
    EXPECT_EQ(infoOf(Codec::pcma).samplesIn(block, 160, 2), 80U);
    EXPECT_EQ(infoOf(Codec::pcma).samplesIn(block, 159, 2), 0U);
    EXPECT_EQ(infoOf(Codec::aac).samplesIn(block, 7, 1), 1024U);
}

TEST(Codec, CountsSamplesOfAnOpusPacket)
{
    struct Case
    {
        const char* name;
        std::vector<std::uint8_t> packet;
        std::uint32_t samples;
    };
    const Case cases[] = {
        {"SILK, 10 ms", {0 << 3, 1}, 480},
        {"SILK, 60 ms", {3 << 3, 1}, 2880},
        {"hybrid, 20 ms", {13 << 3, 1}, 960},
        {"CELT, 2.5 ms", {16 << 3, 1}, 120},
        {"CELT, 20 ms", {31 << 3, 1}, 960},
        {"no data", {31 << 3}, 960},
        {"two frames of equal size", {(31 << 3) | 1, 1, 1}, 1920},
        {"two frames", {(31 << 3) | 2, 1, 1, 1}, 1920},
        {"six frames", {(31 << 3) | 3, 6, 1}, 5760},
        {"more than 120 ms", {(31 << 3) | 3, 7, 1}, 0},
        {"no frame", {(31 << 3) | 3, 0, 1}, 0},
        {"the count is missing", {(31 << 3) | 3}, 0},
        {"empty", {}, 0},
    };
    for (const Case& one : cases)
    {
        EXPECT_EQ(infoOf(Codec::opus).samplesIn(one.packet.data(), one.packet.size(), 1), one.samples)
            << one.name;
    }
}

TEST(Codec, OpusHasAnIdentificationHeaderForFiles)
{
    const std::vector<std::uint8_t> head = infoOf(Codec::opus).makeCodecData(2);
    EXPECT_EQ(head, (std::vector<std::uint8_t>{'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1, 2, 0, 0, 0x80, 0xbb,
                                               0, 0, 0, 0, 0}));
}

TEST(Codec, CodecChoicesAreThoseOfTheKind)
{
    using Names = std::vector<std::string_view>;
    EXPECT_EQ(codecChoices(MediaKind::video), (Names{"h264", "h265", "mjpeg", "none"}));
    EXPECT_EQ(codecChoices(MediaKind::audio), (Names{"pcmu", "pcma", "aac", "opus", "none"}));
    EXPECT_EQ(codecChoices(MediaKind::audio, true), (Names{"pcmu", "pcma", "aac", "opus", "none"}));
}

}  // namespace
}  // namespace refhost
