#include "refhost/export/Mp4Export.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>

#include "refhost/export/ExportFile.h"
#include "tests/refhost/export/ExportFixture.h"
#include "tests/refhost/export/ReadMp4.h"

namespace refhost
{
namespace test
{
namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

class Mp4ExportTest : public ExportTest
{
protected:
    ReadMp4 exported(double begin, double end)
    {
        const std::string path = folder_ / "out.mp4";
        const auto source = open(begin, end);
        EXPECT_TRUE(source) << error_;
        if (source)
        {
            std::string error;
            EXPECT_TRUE(ExportFile::write(
                *source, path, [](auto, auto) {}, nullptr, error))
                << error;
            EXPECT_EQ(std::filesystem::file_size(path), source->size());
        }
        return ReadMp4(path);
    }

    /// Each 40th millisecond of [begin, end).
    static std::vector<int> frames(int begin, int end)
    {
        std::vector<int> times;
        for (int time = begin; time < end; time += 40)
        {
            times.push_back(time);
        }
        return times;
    }
};

TEST_F(Mp4ExportTest, WholeSegmentIsPresentedFromZero)
{
    record(0, 2);
    const ReadMp4 file = exported(0, 2);
    EXPECT_EQ(ReadMp4::presented(file.video), frames(0, 2000));
    EXPECT_EQ(file.audio.size(), 100U);
    EXPECT_TRUE(
        std::all_of(file.video.begin(), file.video.end(), [](const auto& packet) { return !packet.cut; }));
}

TEST_F(Mp4ExportTest, IntervalWithinIsCutToTheInstant)
{
    record(0, 4);
    const ReadMp4 file = exported(1.56, 2.48);
    EXPECT_EQ(ReadMp4::presented(file.video), frames(0, 920));
    // From the key frame before, 0.56 s earlier.
    EXPECT_EQ(file.video.size(), 14U + 23U);
    EXPECT_TRUE(file.video.front().key);
    EXPECT_TRUE(file.video.front().cut);
    EXPECT_NEAR(file.video.front().time, -0.56, 1e-6);
}

TEST_F(Mp4ExportTest, AudioIsCutToTheSameInstant)
{
    record(0, 4);
    const ReadMp4 file = exported(1.56, 2.48);
    const std::vector<int> times = ReadMp4::presented(file.audio);
    ASSERT_FALSE(times.empty());
    EXPECT_EQ(times.size(), 46U);
    EXPECT_EQ(times.back(), 900);
}

TEST_F(Mp4ExportTest, TimesAreTrueWhereTheIntervalStartsWithinAFrame)
{
    record(0, 4);
    const ReadMp4 file = exported(1.575, 2.5);
    EXPECT_EQ(ReadMp4::presented(file.video), frames(25, 925));
    const std::vector<int> blocks = ReadMp4::presented(file.audio);
    ASSERT_FALSE(blocks.empty());
    EXPECT_NEAR(blocks.front(), 5, 1);
    EXPECT_NEAR(blocks.back(), 905, 1);
}

TEST_F(Mp4ExportTest, GapIsOneOfTheTimeline)
{
    record(0, 2);
    record(7.5, 9);
    std::vector<int> expected = frames(0, 1000);
    const std::vector<int> behind = frames(6500, 7500);
    expected.insert(expected.end(), behind.begin(), behind.end());
    const ReadMp4 file = exported(1, 8.5);
    EXPECT_EQ(ReadMp4::presented(file.video), expected);
    const std::vector<int> blocks = ReadMp4::presented(file.audio);
    ASSERT_EQ(blocks.size(), 100U);
    EXPECT_EQ(blocks[49], 980);
    EXPECT_EQ(blocks[50], 6500);
}

TEST_F(Mp4ExportTest, SegmentsFollowWithoutABreak)
{
    record(0, 2);
    record(2, 4);
    const ReadMp4 file = exported(0, 4);
    EXPECT_EQ(ReadMp4::presented(file.video), frames(0, 4000));
    EXPECT_EQ(file.changes, 0);
}

TEST_F(Mp4ExportTest, IntervalThatStartsBeforeTheRecordingStartsEmpty)
{
    record(10, 12);
    const ReadMp4 file = exported(8.5, 11);
    EXPECT_EQ(ReadMp4::presented(file.video), frames(1500, 2500));
    EXPECT_EQ(ReadMp4::presented(file.audio).front(), 1500);
}

TEST_F(Mp4ExportTest, IntervalThatEndsBehindTheRecordingEndsWithIt)
{
    record(0, 2);
    EXPECT_EQ(ReadMp4::presented(exported(1, 100).video), frames(0, 1000));
}

TEST_F(Mp4ExportTest, OneFrameIsExported)
{
    record(0, 2);
    EXPECT_THAT(ReadMp4::presented(exported(1.2, 1.24).video), ElementsAre(0));
}

TEST_F(Mp4ExportTest, IntervalWithoutRecordingsIsRefused)
{
    record(0, 2);
    record(7, 9);
    for (const auto& [begin, end] : {std::pair(2.5, 6.5), std::pair(9.5, 20.0), std::pair(-20.0, -1.0)})
    {
        EXPECT_FALSE(open(begin, end));
        EXPECT_EQ(problem_, ExportPlan::Problem::nothing);
        EXPECT_THAT(error_, HasSubstr("nothing was recorded"));
    }
}

TEST_F(Mp4ExportTest, EmptyReversedAndTooLongIntervalsAreRefused)
{
    record(0, 2);
    for (const auto& [begin, end] : {std::pair(1.0, 1.0), std::pair(2.0, 1.0), std::pair(0.0, 86401.0)})
    {
        EXPECT_FALSE(open(begin, end));
        EXPECT_EQ(problem_, ExportPlan::Problem::interval);
        EXPECT_FALSE(error_.empty());
    }
}

TEST_F(Mp4ExportTest, IncompleteIndexIsNotTakenForNothing)
{
    index_->setComplete(false);
    EXPECT_FALSE(open(0, 2));
    EXPECT_EQ(problem_, ExportPlan::Problem::notReady);
}

TEST_F(Mp4ExportTest, ReorderedFramesKeepTheirTimes)
{
    // I P B B P B B: presented 0 3 1 2 6 4 5 …, within GOPs of 25.
    record(0, 2, true,
           [](int i)
           {
               const int place = i % 25;
               const int group = (place + 2) / 3 * 3;
               const int base = i - place;
               return place == 0 ? i : place % 3 == 1 ? base + group : base + place - 1;
           });
    const ReadMp4 file = exported(0, 2);
    std::vector<int> times = ReadMp4::presented(file.video);
    EXPECT_FALSE(std::is_sorted(times.begin(), times.end()));
    std::sort(times.begin(), times.end());
    EXPECT_EQ(times, frames(0, 2000));
    for (std::size_t i = 0; i < file.video.size(); ++i)
    {
        EXPECT_LE(file.video[i].decode, file.video[i].time + 1e-9) << i;
        EXPECT_TRUE(i == 0 || file.video[i].decode > file.video[i - 1].decode) << i;
    }
}

TEST_F(Mp4ExportTest, ChangedParameterSetsAreADescriptionOfTheirOwn)
{
    record(0, 2);
    MediaFormat changed = *videoFormat(640);
    changed.codecData[3] = 0x1f;
    video = std::make_shared<const MediaFormat>(changed);
    record(2, 4);
    const ReadMp4 file = exported(0, 4);
    EXPECT_EQ(ReadMp4::presented(file.video), frames(0, 4000));
    EXPECT_EQ(file.changes, 1);
    EXPECT_EQ(file.streams, 2U);
}

TEST_F(Mp4ExportTest, OfWhatWasRecordedTwiceTheFirstStays)
{
    record(0, 4);
    record(2, 6);
    EXPECT_EQ(ReadMp4::presented(exported(0, 6).video), frames(0, 6000));
}

TEST_F(Mp4ExportTest, GrowingSegmentIsExportedAsFarAsItWasWritten)
{
    record(0, 2);
    record(2, 4, false);
    EXPECT_EQ(ReadMp4::presented(exported(0, 100).video), frames(0, 4000));
}

TEST_F(Mp4ExportTest, CutOffSegmentIsExportedUpToThere)
{
    const std::string path = record(0, 10, false);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    const std::vector<int> times = ReadMp4::presented(exported(0, 10).video);
    EXPECT_GT(times.size(), 100U);
    EXPECT_LT(times.size(), 150U);
    EXPECT_EQ(times, frames(0, static_cast<int>(times.size()) * 40));
}

TEST_F(Mp4ExportTest, UnreadableSegmentIsLeftOutAndCounted)
{
    record(0, 2);
    std::ofstream(record(2, 4), std::ios::trunc) << "no recording";
    record(4, 6);
    const auto source = open(0, 6);
    ASSERT_TRUE(source);
    EXPECT_EQ(source->leftOut(), 1);
    std::vector<int> expected = frames(0, 2000);
    const std::vector<int> behind = frames(4000, 6000);
    expected.insert(expected.end(), behind.begin(), behind.end());
    EXPECT_EQ(ReadMp4::presented(exported(0, 6).video), expected);
}

TEST_F(Mp4ExportTest, EveryPartEqualsThatOfTheWhole)
{
    record(0, 2);
    record(3, 5);
    const auto source = open(0.5, 5);
    ASSERT_TRUE(source);
    const std::vector<std::uint8_t> whole = bytesOf(*source);
    std::string error;
    for (const std::size_t size : {std::size_t{1}, std::size_t{997}, std::size_t{65536}})
    {
        for (std::size_t at = 0; at < whole.size(); at += size == 1 ? 211 : size / 2)
        {
            std::vector<std::uint8_t> part(std::min(size, whole.size() - at));
            ASSERT_EQ(source->read(at, part.data(), size, error), part.size()) << at << error;
            ASSERT_TRUE(std::equal(part.begin(), part.end(), whole.begin() + static_cast<std::ptrdiff_t>(at)))
                << at;
        }
    }
    std::uint8_t byte = 0;
    EXPECT_EQ(source->read(whole.size(), &byte, 1, error), 0U);
}

TEST_F(Mp4ExportTest, SameIntervalIsTheSameFileUnderTheSameTag)
{
    record(0, 4);
    const auto first = open(0.5, 3);
    const auto again = open(0.5, 3);
    const auto other = open(0.5, 2);
    EXPECT_EQ(first->tag(), again->tag());
    EXPECT_NE(first->tag(), other->tag());
    EXPECT_EQ(bytesOf(*first), bytesOf(*again));
}

TEST_F(Mp4ExportTest, RemovedSegmentEndsItWithAReason)
{
    record(0, 2);
    const std::string path = record(2, 4);
    const auto source = open(0, 4);
    ASSERT_TRUE(source);
    std::filesystem::remove(path);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(source->size()));
    std::string error;
    EXPECT_TRUE(source->read(0, bytes.data(), 1000, error)) << error;
    EXPECT_FALSE(source->read(0, bytes.data(), bytes.size(), error));
    EXPECT_THAT(error, HasSubstr("was removed meanwhile"));
}

TEST_F(Mp4ExportTest, ReplacedAndShortenedSegmentsEndItWithAReason)
{
    const std::string path = record(0, 2);
    std::string error;
    std::vector<std::uint8_t> bytes(1'000'000);
    const auto source = open(0, 2);
    std::filesystem::resize_file(path, 3000);
    EXPECT_FALSE(source->read(0, bytes.data(), bytes.size(), error));
    EXPECT_THAT(error, HasSubstr("became shorter"));
    const std::string again = record(10, 12);
    const auto other = open(10, 12);
    std::filesystem::rename(path, again);
    EXPECT_FALSE(other->read(0, bytes.data(), bytes.size(), error));
    EXPECT_THAT(error, HasSubstr("was replaced"));
}

TEST_F(Mp4ExportTest, RecordingWithoutAudioHasOneTrack)
{
    audio = nullptr;
    record(0, 2);
    const ReadMp4 file = exported(0.5, 1.5);
    EXPECT_EQ(file.streams, 1U);
    EXPECT_EQ(ReadMp4::presented(file.video).size(), 25U);
}

TEST_F(Mp4ExportTest, AudioCodecsAreKept)
{
    for (const Codec codec : {Codec::aac, Codec::opus, Codec::pcma, Codec::pcmu})
    {
        audio = audioFormat(codec);
        record(0, 2);
        const ReadMp4 file = exported(0, 2);
        EXPECT_EQ(file.streams, 2U) << nameOf(codec);
        EXPECT_EQ(file.audio.size(), 100U) << nameOf(codec);
        index_->remove(index_->all().front().id);
    }
}

}  // namespace
}  // namespace test
}  // namespace refhost
