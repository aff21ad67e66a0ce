#include "refhost/playback/RecordedSource.h"

#include <gtest/gtest.h>

#include "tests/CapturedErrors.h"
#include "tests/refhost/playback/RecordedMedia.h"

namespace refhost
{
namespace test
{
namespace
{

class RecordedSourceTest : public RecordedMediaTest
{
protected:
    struct Read
    {
        std::vector<PlaybackUnit> frames;
        std::vector<PlaybackUnit> blocks;
        PlaybackSource::Result result = PlaybackSource::Result::unit;
    };

    std::unique_ptr<RecordedSource> makeSource()
    {
        return std::make_unique<RecordedSource>(recordings, clock,
                                                RecordedSource::Interval{1, at(0), at(10'000)});
    }

    static PlaybackSource::Request request(double from, double end)
    {
        PlaybackSource::Request request;
        request.from = at(from);
        request.end = at(end);
        request.video = {1364, "H264"};
        request.audio = {1364, "PCMA"};
        return request;
    }

    static Read readOn(RecordedSource& source)
    {
        Read read;
        PlaybackUnit unit;
        while ((read.result = source.read(unit)) == PlaybackSource::Result::unit)
        {
            (unit.video ? read.frames : read.blocks).push_back(unit);
            if (read.frames.size() + read.blocks.size() > 100'000)
            {
                ADD_FAILURE() << "it never ends";
                return read;
            }
        }
        return read;
    }

    Read readAll(double from, double end)
    {
        const auto source = makeSource();
        EXPECT_TRUE(source->open(request(from, end)));
        return readOn(*source);
    }

    static void expectFrames(const std::vector<PlaybackUnit>& frames, double first, std::size_t count)
    {
        ASSERT_EQ(frames.size(), count);
        for (std::size_t i = 0; i < count; ++i)
        {
            ASSERT_NEAR(secondsAt(frames[i].media), first + 0.04 * static_cast<double>(i), 0.0011) << i;
        }
    }
};

TEST_F(RecordedSourceTest, OneSegmentIsReadWhole)
{
    addSegment(0, 4);
    const Read read = readAll(0, 100);
    EXPECT_EQ(read.result, PlaybackSource::Result::end);
    expectFrames(read.frames, 0, 100);
    EXPECT_EQ(read.blocks.size(), 200U);
    EXPECT_TRUE(read.frames.front().key);
    EXPECT_TRUE(read.frames.front().unit->keyFrame);
    EXPECT_FALSE(read.frames[1].key);
    EXPECT_TRUE(read.frames.back().last);
    EXPECT_TRUE(read.blocks.back().last);
    EXPECT_FALSE(read.frames[98].last);
    EXPECT_NEAR(static_cast<double>(read.frames.back().duration.count()), 4e7, 1.1e6);
}

TEST_F(RecordedSourceTest, SegmentBoundariesAreNotNoticeable)
{
    addSegment(0, 3);
    addSegment(3, 3);
    addSegment(6, 3);
    const Read read = readAll(1.5, 7.5);
    expectFrames(read.frames, 1, 163);
    EXPECT_NEAR(static_cast<double>(read.blocks.size()), 325, 2);
    EXPECT_EQ(read.frames.front().range, read.frames.back().range);
    for (std::size_t i = 1; i < read.blocks.size(); ++i)
    {
        ASSERT_GT(read.blocks[i].media, read.blocks[i - 1].media);
    }
}

TEST_F(RecordedSourceTest, MediaRecordedTwiceAtOneTimePlayInTheirOrder)
{
    // After second 6 the clock was set back to second 2.
    addSegment(0, 3);
    addSegment(3, 3);
    addSegment(2, 3, 1);
    addSegment(5, 3, 1);
    const Read read = readAll(1, 4);
    EXPECT_EQ(read.result, PlaybackSource::Result::end);
    ASSERT_EQ(read.frames.size(), 75U + 50U);
    expectFrames({read.frames.begin(), read.frames.begin() + 75}, 1, 75);
    expectFrames({read.frames.begin() + 75, read.frames.end()}, 2, 50);
    EXPECT_EQ(read.frames[0].range, read.frames[74].range);
    EXPECT_NE(read.frames[74].range, read.frames[75].range);
    EXPECT_EQ(read.frames[75].range, read.frames[124].range);
    EXPECT_TRUE(read.frames[75].key);
    EXPECT_NEAR(static_cast<double>(read.blocks.size()), 150 + 100, 4);
}

TEST_F(RecordedSourceTest, CorruptParameterSetInTheFirstSegmentSparesTheOthers)
{
    for (const std::size_t from : {0U, 4U, 6U})
    {
        recordings = std::make_shared<ListedRecordings>();
        corruptParameterSet(addSegment(0, 1).path, from, "\xff\xff\xff\xff");
        addSegment(1, 1);
        addSegment(2, 1);
        const Read read = readAll(0, 3);
        EXPECT_EQ(read.result, PlaybackSource::Result::end);
        std::vector<PlaybackUnit> whole;
        std::copy_if(read.frames.begin(), read.frames.end(), std::back_inserter(whole),
                     [](const PlaybackUnit& unit) { return secondsAt(unit.media) > 0.99; });
        expectFrames(whole, 1, 50);
        EXPECT_TRUE(!whole.empty() && whole.front().key) << from;
    }
}

TEST_F(RecordedSourceTest, TheEndIsExact)
{
    addSegment(0, 3);
    addSegment(3, 3);
    const Read read = readAll(0, 3.5);
    expectFrames(read.frames, 0, 88);
    EXPECT_LT(secondsAt(read.blocks.back().media), 3.5);
    EXPECT_GT(secondsAt(read.blocks.back().media), 3.47);
    EXPECT_LE(read.frames.back().media + read.frames.back().duration, at(3.5));
    EXPECT_TRUE(read.frames.back().last);
}

TEST_F(RecordedSourceTest, GapStartsANewRangeWithAKeyFrame)
{
    addSegment(0, 2);
    addSegment(7200, 2);
    const Read read = readAll(0, 10'000);
    ASSERT_EQ(read.frames.size(), 100U);
    EXPECT_TRUE(read.frames[49].last);
    EXPECT_EQ(read.frames[49].range + 1, read.frames[50].range);
    EXPECT_TRUE(read.frames[50].key);
    EXPECT_NEAR(secondsAt(read.frames[50].media), 7200, 0.001);
    for (const PlaybackUnit& block : read.blocks)
    {
        EXPECT_GE(block.media, secondsAt(block.media) < 100 ? at(0) : read.frames[50].media);
    }
}

TEST_F(RecordedSourceTest, AnInstantInAGapStartsBehindIt)
{
    addSegment(0, 2);
    addSegment(1000, 2);
    const Read read = readAll(500, 10'000);
    expectFrames(read.frames, 1000, 50);
}

TEST_F(RecordedSourceTest, NothingBehindTheRecordedMediaIsFound)
{
    addSegment(0, 2);
    const auto source = makeSource();
    EXPECT_FALSE(source->open(request(50, 100)));
    ASSERT_TRUE(source->open(request(0, 100)));
    PlaybackUnit unit;
    ASSERT_EQ(source->read(unit), PlaybackSource::Result::unit);
    EXPECT_FALSE(source->open(request(50, 100))) << "and what was read goes on";
    EXPECT_EQ(readOn(*source).frames.size() + 1, 50U);
}

TEST_F(RecordedSourceTest, SegmentsThatCannotBeReadAreLeftOut)
{
    addSegment(0, 2);
    std::ofstream(directory_ + "/bad.mkv") << "rubbish";
    addFile(directory_ + "/bad.mkv", 2, 2);
    addFile(directory_ + "/none.mkv", 4, 2);
    addSegment(6, 2);
    const Read read = readAll(0, 100);
    ASSERT_EQ(read.frames.size(), 100U);
    EXPECT_NEAR(secondsAt(read.frames[50].media), 6, 0.001);
    EXPECT_NE(read.frames[49].range, read.frames[50].range);
}

TEST_F(RecordedSourceTest, TruncatedSegmentPlaysUpToItsEnd)
{
    const RecordedSegment segment = addSegment(0, 4);
    cut(segment.path, 0.6);
    addSegment(4, 2);
    const Read read = readAll(0, 100);
    EXPECT_GT(read.frames.size(), 50U + 40U);
    EXPECT_NEAR(secondsAt(read.frames[read.frames.size() - 50].media), 4, 0.001);
}

TEST_F(RecordedSourceTest, UnitWithACorruptTimestampIsSkippedAndTheRestPlays)
{
    const RecordedSegment segment = addFile(makeFile(6, frames, ""), 0, 6);
    addFile(makeFile(4, frames, ""), 6, 4);
    // A cluster's identifier, its size, and its time: behind the end of the whole recording now.
    std::string bytes;
    {
        std::ifstream in(segment.path, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    std::size_t cluster = bytes.find("\x1F\x43\xB6\x75", bytes.size() / 2);
    ASSERT_NE(cluster, std::string::npos);
    const std::size_t time = bytes.find("\xE7\x82", cluster);
    ASSERT_LT(time, cluster + 16);
    bytes[time + 2] = '\xF0';
    std::ofstream(segment.path, std::ios::binary) << bytes;
    PlaybackSource::Request changed = request(0, 10);
    changed.audio = {};
    const auto source = makeSource();
    ASSERT_TRUE(source->open(changed));
    const Read read = readOn(*source);
    ASSERT_GT(read.frames.size(), 150U);
    EXPECT_NEAR(secondsAt(read.frames.back().media), 9.96, 0.001);
    for (std::size_t i = 1; i < read.frames.size(); ++i)
    {
        ASSERT_GT(read.frames[i].media, read.frames[i - 1].media);
        ASSERT_TRUE(read.frames[i].range == read.frames[i - 1].range || read.frames[i].key);
    }
}

TEST_F(RecordedSourceTest, OverlappingSegmentsNeverGoBack)
{
    addSegment(0, 3);
    addSegment(1.5, 3);
    const Read read = readAll(0, 100);
    for (std::size_t i = 1; i < read.frames.size(); ++i)
    {
        ASSERT_GT(read.frames[i].media, read.frames[i - 1].media);
    }
    for (std::size_t i = 1; i < read.blocks.size(); ++i)
    {
        ASSERT_GT(read.blocks[i].media, read.blocks[i - 1].media);
    }
    EXPECT_NEAR(secondsAt(read.frames.back().media), 4.46, 0.001);
}

TEST_F(RecordedSourceTest, FramesOutOfOrderAreSentInTime)
{
    addFile(
        makeFile(4, "x264enc speed-preset=ultrafast bframes=3 b-adapt=false key-int-max=25 ! h264parse", ""),
        0, 4);
    PlaybackSource::Request changed = request(1, 3);
    changed.audio = {};
    const auto source = makeSource();
    ASSERT_TRUE(source->open(changed));
    const Read read = readOn(*source);
    ASSERT_GE(read.frames.size(), 50U);
    std::vector<WallTime> displayed;
    bool reordered = false;
    for (std::size_t i = 0; i < read.frames.size(); ++i)
    {
        const PlaybackUnit& frame = read.frames[i];
        displayed.push_back(frame.media);
        EXPECT_LE(frame.due, frame.media);
        EXPECT_GE(frame.media, read.frames.front().media);
        EXPECT_LT(frame.due, at(3));
        reordered = reordered || (i > 0 && frame.media < read.frames[i - 1].media);
        EXPECT_GE(frame.due, i > 0 ? read.frames[i - 1].due : WallTime());
    }
    EXPECT_TRUE(reordered);
    std::sort(displayed.begin(), displayed.end());
    for (std::size_t i = 1; i < displayed.size(); ++i)
    {
        ASSERT_NEAR(static_cast<double>((displayed[i] - displayed[i - 1]).count()), 4e7, 1.1e6);
    }
}

TEST_F(RecordedSourceTest, AudioStartsWithTheFirstFrameAlsoBehindAGap)
{
    const std::string path = directory_ + "/late.mkv";
    run("matroskamux name=mux ! filesink location=" + path +
        " videotestsrc num-buffers=50 timestamp-offset=500000000 "
        "! video/x-raw,format=I420,width=160,height=120,framerate=25/1 ! " +
        frames +
        " ! queue ! mux. audiotestsrc samplesperbuffer=160 num-buffers=125 "
        "! audio/x-raw,rate=8000,channels=1 ! alawenc ! queue ! mux.");
    addSegment(0, 2);
    addFile(path, 100, 2.5);
    const Read read = readAll(0, 200);
    ASSERT_EQ(read.frames.size(), 100U);
    EXPECT_NEAR(secondsAt(read.frames[50].media), 100.5, 0.001);
    const auto behind = std::find_if(read.blocks.begin(), read.blocks.end(),
                                     [](const PlaybackUnit& block) { return block.media > at(50); });
    ASSERT_NE(behind, read.blocks.end());
    EXPECT_GE(behind->media, read.frames[50].media);
    EXPECT_LT(behind->media, read.frames[51].media);
}

TEST_F(RecordedSourceTest, AudioBeforeTheFirstFrameIsSkippedWhereverItIsInTheFile)
{
    addFile(makeFile(4, "x264enc speed-preset=ultrafast bframes=3 b-adapt=false key-int-max=25 ! h264parse"),
            0, 4);
    const Read read = readAll(2, 4);
    EXPECT_NEAR(secondsAt(read.frames.front().media), 2, 0.2);
    ASSERT_FALSE(read.blocks.empty());
    for (const PlaybackUnit& block : read.blocks)
    {
        ASSERT_GE(block.media, read.frames.front().media);
    }
}

TEST_F(RecordedSourceTest, OnlyKeyFramesWhereRequested)
{
    addSegment(0, 5);
    addSegment(5, 5);
    PlaybackSource::Request changed = request(0, 10);
    changed.keyFramesOnly = true;
    changed.audio = {};
    const auto source = makeSource();
    ASSERT_TRUE(source->open(changed));
    const Read read = readOn(*source);
    ASSERT_EQ(read.frames.size(), 10U);
    EXPECT_EQ(read.frames.front().range, read.frames.back().range);
    EXPECT_EQ(read.frames[3].duration, std::chrono::seconds(1));
}

TEST_F(RecordedSourceTest, KeyFramesKeepTheRequestedDistanceAcrossSegments)
{
    addSegment(0, 5);
    addSegment(5, 5);
    PlaybackSource::Request changed = request(1, 10);
    changed.keyFramesOnly = true;
    changed.keyDistance = std::chrono::milliseconds(2500);
    changed.audio = {};
    const auto source = makeSource();
    ASSERT_TRUE(source->open(changed));
    std::vector<double> seconds;
    for (const PlaybackUnit& frame : readOn(*source).frames)
    {
        seconds.push_back(secondsAt(frame.media));
    }
    EXPECT_EQ(seconds, (std::vector<double>{1, 4, 7}));
    // Capture times are not exact: frames at just the requested distance count.
    changed.keyDistance = std::chrono::milliseconds(3010);
    ASSERT_TRUE(source->open(changed));
    EXPECT_EQ(readOn(*source).frames.size(), 3U);
}

TEST_F(RecordedSourceTest, AGrowingSegmentIsFollowed)
{
    const std::string whole = makeFile(6);
    const std::string path = directory_ + "/growing.mkv";
    std::filesystem::copy_file(whole, path);
    cut(path, 0.5);
    RecordedSegment segment = addFile(path, 0, 100, false);
    const auto source = makeSource();
    ASSERT_TRUE(source->open(request(0, 100)));
    const Read before = readOn(*source);
    EXPECT_EQ(before.result, PlaybackSource::Result::later);
    EXPECT_GT(before.frames.size(), 50U);
    EXPECT_LT(before.frames.size(), 100U);
    std::filesystem::copy_file(whole, path, std::filesystem::copy_options::overwrite_existing);
    segment.closed = true;
    recordings->change(segment);
    const Read after = readOn(*source);
    EXPECT_EQ(after.result, PlaybackSource::Result::end);
    EXPECT_EQ(before.frames.size() + after.frames.size(), 150U);
    EXPECT_NEAR(static_cast<double>((after.frames.front().media - before.frames.back().media).count()), 4e7,
                1.1e6);
}

TEST_F(RecordedSourceTest, ASegmentWhoseFileIsJustBeingMadeIsWaitedFor)
{
    clock.setWall(at(2.1) - clock.wallNow());
    addSegment(0, 2);
    const std::string path = directory_ + "/made.mkv";
    std::ofstream(path).flush();
    addFile(path, 2, 0.1, false);
    const auto source = makeSource();
    ASSERT_TRUE(source->open(request(0, 100)));
    CapturedErrors log;
    const Read before = readOn(*source);
    EXPECT_EQ(before.result, PlaybackSource::Result::later);
    EXPECT_EQ(before.frames.size(), 50U);
    std::filesystem::copy_file(makeFile(2), path, std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(readOn(*source).frames.size(), 50U);
    EXPECT_TRUE(log.linesWith("cannot be played").empty());
}

TEST_F(RecordedSourceTest, ASegmentWhoseFileIsNeverMadeIsLeftOut)
{
    clock.setWall(at(60) - clock.wallNow());
    addSegment(0, 2);
    const std::string path = directory_ + "/made.mkv";
    std::ofstream(path).flush();
    addFile(path, 2, 0.1, false);
    addSegment(4, 2);
    EXPECT_EQ(readAll(0, 6).frames.size(), 100U);
}

TEST_F(RecordedSourceTest, WaitingForGrowthEnds)
{
    const std::string path = makeFile(2);
    addFile(path, 0, 100, false);
    const auto source = makeSource();
    ASSERT_TRUE(source->open(request(0, 100)));
    int waits = 0;
    while (readOn(*source).result == PlaybackSource::Result::later)
    {
        ASSERT_LT(++waits, 1000);
    }
    EXPECT_GT(waits, 3);
}

TEST_F(RecordedSourceTest, AacAudioIsRead)
{
    addFile(makeFile(3, frames, "avenc_aac ! aacparse"), 0, 3);
    PlaybackSource::Request changed = request(0, 10);
    changed.audio = {1364, "MPEG4-GENERIC"};
    const auto source = makeSource();
    ASSERT_TRUE(source->open(changed));
    const Read read = readOn(*source);
    ASSERT_GE(read.blocks.size(), 22U);
    EXPECT_EQ(read.blocks.front().duration, std::chrono::milliseconds(128));
    EXPECT_GE(read.blocks.front().media, at(0));
}

TEST_F(RecordedSourceTest, RecordedMediaOfAnotherCodecIsLeftOut)
{
    addSegment(0, 2);
    addFile(makeFile(2, "x265enc speed-preset=ultrafast key-int-max=25 ! h265parse"), 2, 2);
    addSegment(4, 2);
    const Read read = readAll(0, 100);
    EXPECT_EQ(read.frames.size(), 100U);
    EXPECT_NEAR(secondsAt(read.frames.back().media), 5.96, 0.001);
}

TEST_F(RecordedSourceTest, NothingOfTheFormerPlaceIsLeftAfterASeek)
{
    const std::string path = directory_ + "/odd.mkv";
    run("audiotestsrc samplesperbuffer=1000 num-buffers=41 ! audio/x-raw,rate=8000,channels=1 ! alawenc "
        "! matroskamux ! filesink location=" +
        path);
    addFile(path, 0, 5);
    PlaybackSource::Request changed = request(0, 5);
    changed.video = {};
    const auto source = makeSource();
    ASSERT_TRUE(source->open(changed));
    const Read whole = readOn(*source);
    ASSERT_TRUE(source->open(changed));
    const Read again = readOn(*source);
    ASSERT_EQ(again.blocks.size(), whole.blocks.size());
    EXPECT_EQ(again.blocks.front().media, whole.blocks.front().media);
    EXPECT_EQ(again.blocks.front().unit->payloadBytes, whole.blocks.front().unit->payloadBytes);
}

TEST_F(RecordedSourceTest, PacketsKeepTheRequestedSize)
{
    addFile(makeFile(2, "x264enc speed-preset=ultrafast key-int-max=25 bitrate=4000 ! h264parse"), 0, 2);
    PlaybackSource::Request changed = request(0, 2);
    changed.video.payloadSize = 500;
    const auto source = makeSource();
    ASSERT_TRUE(source->open(changed));
    std::size_t largest = 0;
    for (const PlaybackUnit& frame : readOn(*source).frames)
    {
        for (const AccessUnit::Packet& packet : frame.unit->packets)
        {
            largest = std::max<std::size_t>(largest, packet.size);
        }
    }
    EXPECT_LE(largest, 512U);
    EXPECT_GT(largest, 450U);
}

}  // namespace
}  // namespace test
}  // namespace refhost
