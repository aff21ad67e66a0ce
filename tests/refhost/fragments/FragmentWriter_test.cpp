#include "refhost/fragments/FragmentWriter.h"

#include <gtest/gtest.h>

#include "tests/refhost/fragments/Boxes.h"
#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace
{

using test::Mp4Box;

class FragmentWriterTest : public testing::Test, protected MadeUnits
{
protected:
    FragmentWriterTest()
    {
        audio = audioFormat(Codec::aac);
    }

    static std::vector<std::string> types(ByteSpan bytes)
    {
        std::vector<std::string> all;
        for (const Mp4Box& box : Mp4Box::allOf(bytes))
        {
            all.push_back(box.type);
        }
        return all;
    }

    const FragmentWriter::Place place_{7, 3 * second, std::chrono::milliseconds(40), at(1)};
};

TEST_F(FragmentWriterTest, InitSegmentHasTheTracksThatTheViewerWants)
{
    const auto tracks = [](const std::vector<std::uint8_t>& init)
    {
        std::vector<std::string> all = types(Mp4Box::find(init, "moov")->contents);
        return std::count(all.begin(), all.end(), "trak");
    };
    EXPECT_EQ(tracks(FragmentWriter::init(video.get(), audio.get())), 2);
    EXPECT_EQ(tracks(FragmentWriter::init(video.get(), nullptr)), 1);
    EXPECT_EQ(tracks(FragmentWriter::init(nullptr, audio.get())), 1);
    const auto both = FragmentWriter::init(video.get(), audio.get());
    EXPECT_EQ(types(both), (std::vector<std::string>{"ftyp", "moov"}));
    EXPECT_EQ(types(Mp4Box::find(both, "moov/mvex")->contents), (std::vector<std::string>{"trex", "trex"}));
    EXPECT_EQ(Mp4Box::find(both, "moov/trak/tkhd")->number(20, 4), FragmentWriter::videoTrack);
}

TEST_F(FragmentWriterTest, CodecsAreNamedAsBrowsersKnowThem)
{
    EXPECT_EQ(FragmentWriter::mimeType(video.get(), audio.get()),
              "video/mp4; codecs=\"avc1.42C00D,mp4a.40.2\"");
    EXPECT_EQ(FragmentWriter::mimeType(video.get(), nullptr), "video/mp4; codecs=\"avc1.42C00D\"");
    EXPECT_EQ(FragmentWriter::mimeType(nullptr, audio.get()), "audio/mp4; codecs=\"mp4a.40.2\"");
    EXPECT_TRUE(FragmentWriter::canHold(*audioFormat(Codec::opus)));
    EXPECT_FALSE(FragmentWriter::canHold(*audioFormat(Codec::pcmu))) << "no browser plays it in MP4";
}

TEST_F(FragmentWriterTest, AFragmentHoldsTheUnitAndSaysWhereItStands)
{
    const EncodedUnitPtr unit = frame(1, true, 300);
    const auto bytes = FragmentWriter::fragment(*unit, place_);
    EXPECT_EQ(types(bytes), (std::vector<std::string>{"prft", "moof", "mdat"}));
    EXPECT_EQ(Mp4Box::find(bytes, "moof/mfhd")->number(4, 4), 7u);
    EXPECT_EQ(Mp4Box::find(bytes, "moof/traf/tfhd")->number(4, 4), FragmentWriter::videoTrack);
    EXPECT_EQ(Mp4Box::find(bytes, "moof/traf/tfdt")->number(4, 8), 270000u);
    const Mp4Box run = *Mp4Box::find(bytes, "moof/traf/trun");
    EXPECT_EQ(run.number(12, 4), 3600u) << "duration";
    EXPECT_EQ(run.number(16, 4), 300u) << "size";
    const Mp4Box media = *Mp4Box::find(bytes, "mdat");
    EXPECT_EQ(std::vector<std::uint8_t>(media.contents.begin(), media.contents.end()), unit->bytes);
    // The offset counts from the fragment's begin.
    const std::uint8_t* fragment = bytes.data() + Mp4Box::number(bytes, 0, 4);
    EXPECT_EQ(fragment + run.number(8, 4), media.contents.begin());
}

TEST_F(FragmentWriterTest, ViewersSeeWhenAFrameWasCaptured)
{
    const auto bytes = FragmentWriter::fragment(*frame(1, true), place_);
    const Mp4Box time = *Mp4Box::find(bytes, "prft");
    EXPECT_EQ(time.number(4, 4), FragmentWriter::videoTrack);
    EXPECT_EQ(time.number(8, 8), NtpTime(at(1)).bits());
    EXPECT_EQ(time.number(16, 8), 270000u);
}

TEST_F(FragmentWriterTest, OnlyKeyFramesAreMarkedAsSuch)
{
    const auto flags = [&](bool key) {
        return Mp4Box::find(FragmentWriter::fragment(*frame(1, key), place_), "moof/traf/trun")
            ->number(20, 4);
    };
    EXPECT_EQ(flags(true) & 0x10000U, 0u);
    EXPECT_EQ(flags(false) & 0x10000U, 0x10000U);
}

TEST_F(FragmentWriterTest, FramesInAnotherOrderKeepTheirTimeOfPresentation)
{
    EncodedUnit unit = *frame(1, false);
    unit.decodeTime = unit.captureTime - std::chrono::milliseconds(80);
    const auto bytes = FragmentWriter::fragment(unit, place_);
    EXPECT_EQ(Mp4Box::find(bytes, "moof/traf/trun")->number(24, 4), 7200u);
    EXPECT_EQ(Mp4Box::find(bytes, "prft")->number(16, 8), 270000u + 7200u);
}

TEST_F(FragmentWriterTest, AudioIsTrackTwo)
{
    const auto bytes = FragmentWriter::fragment(*block(1), place_);
    EXPECT_EQ(Mp4Box::find(bytes, "moof/traf/tfhd")->number(4, 4), FragmentWriter::audioTrack);
}

TEST_F(FragmentWriterTest, AHundredYearsOfTicksAreExact)
{
    constexpr std::int64_t hundredYears = std::int64_t{100} * 365 * 86400;
    EXPECT_EQ(FragmentWriter::ticks(std::chrono::seconds(hundredYears)), hundredYears * 90000);
    EXPECT_EQ(FragmentWriter::ticks(Duration(11111)), 1);
    EXPECT_EQ(FragmentWriter::ticks(Duration(5555)), 0);
    EXPECT_EQ(FragmentWriter::ticks(Duration(-11111)), -1);
}

// The steps of the durations add up to the times: no gap and no overlap however long a stream runs.
TEST_F(FragmentWriterTest, FragmentsFollowEachOtherWithoutAGap)
{
    const Duration step = second / 30;
    for (int i = 0; i < 1000; ++i)
    {
        const auto bytes = FragmentWriter::fragment(*frame(1, true, 8), {1, i * step, step, at(1)});
        const std::uint64_t end = Mp4Box::find(bytes, "moof/traf/tfdt")->number(4, 8) +
                                  Mp4Box::find(bytes, "moof/traf/trun")->number(12, 4);
        EXPECT_EQ(end, static_cast<std::uint64_t>(FragmentWriter::ticks((i + 1) * step)));
    }
}

}  // namespace
}  // namespace refhost
