#include "refhost/mp4/SampleEntry.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace
{

std::string entryOf(const MediaFormat& format)
{
    Mp4Writer writer;
    SampleEntry::write(writer, format);
    const auto bytes = writer.take();
    return {bytes.begin(), bytes.end()};
}

TEST(SampleEntry, SizeIsThatOfAllItHolds)
{
    for (const Codec codec : allCodecs)
    {
        MediaFormat format = isVideo(codec) ? *MadeUnits::videoFormat() : *MadeUnits::audioFormat(codec);
        format.codec = codec;
        const std::string entry = entryOf(format);
        ASSERT_GE(entry.size(), 36U) << nameOf(codec);
        EXPECT_EQ(static_cast<unsigned char>(entry[2]) * 256U + static_cast<unsigned char>(entry[3]),
                  entry.size())
            << nameOf(codec);
    }
}

TEST(SampleEntry, HoldsTheConfigurationRecord)
{
    const MediaFormat format = *MadeUnits::videoFormat();
    const std::string record(format.codecData.begin(), format.codecData.end());
    const std::string entry = entryOf(format);
    EXPECT_EQ(entry.substr(4, 4), "avc1");
    EXPECT_EQ(entry.substr(entry.size() - record.size()), record);
    EXPECT_EQ(entry.substr(entry.size() - record.size() - 4, 4), "avcC");
}

TEST(SampleEntry, CodecsHaveTheNamesThatBrowsersKnow)
{
    EXPECT_EQ(SampleEntry::codecString(*MadeUnits::videoFormat()), "avc1.42C00D");
    EXPECT_EQ(SampleEntry::codecString(*MadeUnits::audioFormat(Codec::aac)), "mp4a.40.2");
    EXPECT_EQ(SampleEntry::codecString(*MadeUnits::audioFormat(Codec::opus)), "opus");
    EXPECT_EQ(SampleEntry::codecString(*MadeUnits::audioFormat(Codec::pcmu)), "");
    MediaFormat hevc;
    hevc.codec = Codec::h265;
    // Main profile, main tier, level 3.1.
    hevc.codecData = {1, 0x01, 0x60, 0, 0, 0, 0xb0, 0, 0, 0, 0, 0, 93};
    EXPECT_EQ(SampleEntry::codecString(hevc), "hvc1.1.6.L93.B0");
}

TEST(SampleEntry, TruncatedRecordHasNoName)
{
    for (const Codec codec : {Codec::h264, Codec::h265, Codec::aac})
    {
        for (std::size_t size = 0; size < (codec == Codec::h265   ? 13U
                                           : codec == Codec::h264 ? 4U
                                                                  : 2U);
             ++size)
        {
            MediaFormat format;
            format.codec = codec;
            format.codecData.assign(size, 1);
            EXPECT_EQ(SampleEntry::codecString(format), "") << size;
        }
    }
}

}  // namespace
}  // namespace refhost
