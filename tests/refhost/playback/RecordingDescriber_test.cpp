#include "refhost/playback/RecordingDescriber.h"

#include <gtest/gtest.h>

#include "refhost/base/HostStatus.h"
#include "tests/refhost/playback/RecordedMedia.h"

namespace refhost
{
namespace test
{
namespace
{

class RecordingDescriberTest : public RecordedMediaTest
{
protected:
    int describe(double begin, double end)
    {
        return describer.describe(*recordings, 1, at(begin), at(end), tracks);
    }

    RecordingDescriber describer;
    std::vector<SubMediaInfo> tracks;
};

TEST_F(RecordingDescriberTest, DescribesWhatAPlayerNeeds)
{
    addSegment(0, 2);
    ASSERT_EQ(describe(0, 100), 0);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].trackId, "trackID=0");
    EXPECT_EQ(tracks[0].mediaType, "video");
    EXPECT_EQ(tracks[0].encodingName, "H264");
    EXPECT_EQ(tracks[0].payloadType, 96);
    EXPECT_EQ(tracks[0].clockRate, 90000);
    EXPECT_NE(tracks[0].formatParameters.find("sprop-parameter-sets="), std::string::npos);
    EXPECT_EQ(tracks[0].width, 160);
    EXPECT_EQ(tracks[0].height, 120);
    EXPECT_EQ(tracks[0].frameRate, 25);
    EXPECT_EQ(tracks[1].trackId, "trackID=1");
    EXPECT_EQ(tracks[1].encodingName, "PCMA");
    EXPECT_EQ(tracks[1].payloadType, 8);
    EXPECT_EQ(tracks[1].clockRate, 8000);
}

TEST_F(RecordingDescriberTest, AacAndH265HaveTheirParameters)
{
    addFile(makeFile(1, "x265enc speed-preset=ultrafast key-int-max=25 ! h265parse", "avenc_aac ! aacparse"),
            0, 1);
    ASSERT_EQ(describe(0, 100), 0);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].encodingName, "H265");
    EXPECT_NE(tracks[0].formatParameters.find("sprop-vps="), std::string::npos);
    EXPECT_EQ(tracks[1].encodingName, "MPEG4-GENERIC");
    EXPECT_NE(tracks[1].formatParameters.find("config="), std::string::npos);
}

TEST_F(RecordingDescriberTest, FramesWithoutAudioAreOneTrack)
{
    addFile(makeFile(1, frames, ""), 0, 1);
    ASSERT_EQ(describe(0, 100), 0);
    EXPECT_EQ(tracks.size(), 1U);
}

TEST_F(RecordingDescriberTest, AnEmptyIntervalHoldsNothing)
{
    addSegment(0, 1);
    EXPECT_EQ(describe(50, 100), hostRecordingUnknown);
}

TEST_F(RecordingDescriberTest, TheFirstSegmentThatCanBeReadCounts)
{
    addFile(directory_ + "/none.mkv", 0, 1);
    EXPECT_EQ(describe(0, 100), hostStreamFailed);
    EXPECT_TRUE(tracks.empty());
    addSegment(1, 1);
    EXPECT_EQ(describe(0, 100), 0);
}

TEST_F(RecordingDescriberTest, LaterAudioIsDescribedAsSoonAsItIsThere)
{
    const std::string whole = directory_ + "/whole.mkv";
    run("matroskamux name=mux ! filesink location=" + whole +
        " videotestsrc num-buffers=100 ! video/x-raw,format=I420,width=160,height=120,framerate=25/1 ! " +
        frames +
        " ! queue ! mux. audiotestsrc timestamp-offset=3000000000 samplesperbuffer=160 num-buffers=50 "
        "! audio/x-raw,rate=8000,channels=1 ! alawenc ! queue ! mux.");
    const std::string path = directory_ + "/growing.mkv";
    std::filesystem::copy_file(whole, path);
    cut(path, 0.4);
    addFile(path, 0, 1, false);
    ASSERT_EQ(describe(0, 100), 0);
    EXPECT_EQ(tracks.size(), 1U);
    std::filesystem::copy_file(whole, path, std::filesystem::copy_options::overwrite_existing);
    tracks.clear();
    ASSERT_EQ(describe(0, 100), 0);
    EXPECT_EQ(tracks.size(), 2U);
}

TEST_F(RecordingDescriberTest, CorruptParameterSetInTheFirstSegmentIsIgnored)
{
    addSegment(50, 1);
    ASSERT_EQ(describe(50, 51), 0);
    const std::vector<SubMediaInfo> good = tracks;
    int checked = 0;
    for (const auto& [from, with] : {std::pair<std::size_t, std::string>{0, "\xff\xff\xff\xff"},
                                     {4, "\xff\xff\xff\xff"},
                                     {4, std::string(6, '\0')},
                                     {1, "\xff"},
                                     {6, "\x5a"},
                                     {8, "\x01\x02"}})
    {
        const double begin = 100 + 10 * ++checked;
        corruptParameterSet(addSegment(begin, 1).path, from, with);
        addSegment(begin + 1, 1);
        addSegment(begin + 2, 1);
        tracks.clear();
        ASSERT_EQ(describe(begin, begin + 3), 0) << checked;
        ASSERT_EQ(tracks.size(), 2U) << checked;
        EXPECT_EQ(tracks[0].formatParameters, good[0].formatParameters) << checked;
        EXPECT_EQ(tracks[0].width, 160) << checked;
    }
}

TEST_F(RecordingDescriberTest, OnlySegmentIsDescribedAlsoWhereItIsCorrupt)
{
    corruptParameterSet(addSegment(0, 1).path, 4, "\xff\xff\xff\xff");
    EXPECT_EQ(describe(0, 1), 0);
    EXPECT_FALSE(tracks.empty());
}

TEST_F(RecordingDescriberTest, NothingIsKnownOfRecordedMediaWhileTheIndexIsRebuilt)
{
    recordings->complete = false;
    EXPECT_EQ(describe(0, 1), hostRecordingsIncomplete);
    addSegment(0, 1);
    EXPECT_EQ(describe(0, 1), 0);
    recordings->complete = true;
    EXPECT_EQ(describe(50, 51), hostRecordingUnknown);
}

TEST_F(RecordingDescriberTest, ASegmentIsReadOnce)
{
    const RecordedSegment segment = addSegment(0, 1);
    ASSERT_EQ(describe(0, 100), 0);
    std::filesystem::remove(segment.path);
    tracks.clear();
    EXPECT_EQ(describe(0, 50), 0);
    EXPECT_EQ(tracks.size(), 2U);
}

}  // namespace
}  // namespace test
}  // namespace refhost
