#include "refhost/playback/ReverseReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "refhost/playback/RecordedSource.h"
#include "tests/refhost/playback/RecordedMedia.h"

namespace refhost
{
namespace test
{
namespace
{

using testing::ElementsAre;

class ReverseReaderTest : public RecordedMediaTest
{
protected:
    ReverseReader makeReader(double from, double end, double distance = 0) const
    {
        ReverseReader::Request request;
        request.cameraId = 1;
        request.from = at(from);
        request.end = at(end);
        request.keyDistance = durationOf(std::chrono::duration<double>(distance));
        return {recordings, request};
    }

    /// Seconds of the frames; a new contiguous range counts as -1.
    std::vector<double> read(double from, double end, double distance = 0) const
    {
        ReverseReader reader = makeReader(from, end, distance);
        std::vector<double> seconds;
        CodedUnit unit;
        std::uint32_t range = 0;
        while (reader.read(unit) == UnitReader::Result::unit)
        {
            EXPECT_TRUE(unit.video && unit.key);
            if (reader.range() != range)
            {
                range = reader.range();
                seconds.push_back(-1);
            }
            seconds.push_back(secondsAt(unit.date));
        }
        EXPECT_EQ(reader.read(unit), UnitReader::Result::end) << "it stays at the end";
        return seconds;
    }
};

TEST_F(ReverseReaderTest, ReadsKeyFramesFromBeforeTheStartToTheOneAtTheEnd)
{
    addSegment(10, 4);
    EXPECT_THAT(read(13.5, 11), ElementsAre(13, 12, 11));
    EXPECT_THAT(read(13, 10.5), ElementsAre(13, 12, 11));
    EXPECT_THAT(read(1000, 0), ElementsAre(13, 12, 11, 10));
    EXPECT_THAT(read(10, 10), ElementsAre(10));
    EXPECT_THAT(read(9, 0), ElementsAre());
}

TEST_F(ReverseReaderTest, SegmentsFollowEachOtherAndGapsStartNewRanges)
{
    addSegment(10, 2);
    addSegment(12, 2);
    addSegment(1000, 2);
    EXPECT_THAT(read(2000, 11), ElementsAre(1001, 1000, -1, 13, 12, 11));
    EXPECT_THAT(read(500, 0), ElementsAre(13, 12, 11, 10)) << "from a gap";
}

TEST_F(ReverseReaderTest, ADistanceIsKept)
{
    addSegment(0, 8);
    EXPECT_THAT(read(7.5, 0, 3), ElementsAre(7, 4, 1));
}

TEST_F(ReverseReaderTest, WhatCannotBeReadIsLeftOut)
{
    addSegment(10, 2);
    addFile(directory_ + "/none.mkv", 12, 2);
    addFile(makeFile(2, "x265enc speed-preset=ultrafast key-int-max=25 ! h265parse"), 14, 2);
    addFile(makeFile(2, "", "alawenc"), 16, 2);
    addSegment(18, 2);
    EXPECT_THAT(read(30, 0), ElementsAre(19, 18, -1, 11, 10));
}

TEST_F(ReverseReaderTest, AFileThatACrashCutOffIsReadAsFarAsItGoes)
{
    const RecordedSegment segment = addSegment(10, 4);
    cut(segment.path, 0.6);
    const auto found = read(20, 0);
    ASSERT_GE(found.size(), 2U);
    EXPECT_EQ(found.back(), 10);
    EXPECT_LT(found.front(), 13);
}

TEST_F(ReverseReaderTest, MoreSegmentsThanOneAnswerHoldsAreFound)
{
    const std::string path = makeFile(1);
    constexpr int count = 700;
    for (int i = 0; i < count; ++i)
    {
        addFile(path, 10 + i * 0.2, 0.2);
    }
    EXPECT_EQ(read(1000, 0).size(), std::size_t{count});
}

TEST_F(ReverseReaderTest, SourceMirrorsTheTimesOfItsFrames)
{
    addSegment(10, 2);
    addSegment(20, 2);
    RecordedSource source(recordings, clock, {1, at(0), at(100)});
    PlaybackSource::Request request;
    request.from = at(50);
    request.end = at(11);
    request.backwards = request.keyFramesOnly = true;
    request.video = {1364, "H264"};
    ASSERT_TRUE(source.open(request));
    std::vector<double> seconds;
    std::vector<bool> last;
    PlaybackUnit unit;
    WallTime place;
    while (source.read(unit) == PlaybackSource::Result::unit)
    {
        EXPECT_TRUE(unit.video && unit.key);
        EXPECT_GT(unit.media, place) << "its place grows";
        EXPECT_EQ(unit.media, request.mirrored(unit.wall));
        EXPECT_LE(unit.due, unit.media);
        place = unit.media;
        seconds.push_back(secondsAt(unit.wall));
        last.push_back(unit.last);
    }
    EXPECT_THAT(seconds, ElementsAre(21, 20, 11));
    EXPECT_THAT(last, ElementsAre(false, true, true));
    request.video = {};
    request.audio = {1364, "PCMA"};
    EXPECT_FALSE(source.open(request)) << "there is no audio backwards";
}

}  // namespace
}  // namespace test
}  // namespace refhost
