#include "refhost/capture/FilePlayer.h"

#include <filesystem>

#include "tests/refhost/capture/ClipFixture.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

class FilePlayerTest : public ClipFixture
{
protected:
    void play(const std::string& path)
    {
        player = std::make_unique<FilePlayer>(path, MediaFile::Kinds(), [] { return false; });
        MediaFile::Problem reason;
        ASSERT_TRUE(player->open(reason)) << reason.text;
    }

    /// Takes units of one kind until there are so many.
    std::vector<FilePlayer::Item> take(bool ofVideo, std::size_t count)
    {
        std::vector<FilePlayer::Item> items;
        Duration last = Duration::min();
        while (items.size() < count)
        {
            const std::optional<Duration> due = player->due(start, problem);
            if (!due)
            {
                return items;
            }
            EXPECT_GE(*due, last) << "units come in the order in which they are due";
            last = *due;
            FilePlayer::Item item = player->take();
            if (item.video == ofVideo)
            {
                dues.push_back(*due);
                items.push_back(std::move(item));
            }
        }
        return items;
    }

    static constexpr Duration start = 10s;
    std::unique_ptr<FilePlayer> player;
    std::string problem;
    std::vector<Duration> dues;
};

TEST_F(FilePlayerTest, IterationsShareOneTimeline)
{
    play(makeClip(std::string(frameLine) + "mp4mux ! filesink location=CLIP"));
    const auto frames = take(true, 175);
    ASSERT_EQ(frames.size(), 175U) << problem;
    for (std::size_t i = 0; i < frames.size(); ++i)
    {
        EXPECT_EQ(frames[i].presentation - start, i * 40ms) << i;
        EXPECT_EQ(dues[i], frames[i].presentation) << i;
        EXPECT_EQ(frames[i].key, i % 25 == 0) << i;
        EXPECT_EQ(frames[i].format, frames[0].format) << i;
    }
}

TEST_F(FilePlayerTest, ReorderedFramesAreDueInTheirOrderAtAnEvenPace)
{
    for (const std::string muxer : {"mp4mux", "matroskamux"})
    {
        dues.clear();
        play(makeClip(
            "videotestsrc num-buffers=50 ! video/x-raw,format=I420,width=160,height=90,framerate=25/1 ! "
            "x264enc bframes=2 b-adapt=false key-int-max=25 ! h264parse ! " +
            muxer + " ! filesink location=CLIP"));
        const auto frames = take(true, 120);
        ASSERT_EQ(frames.size(), 120U) << problem;
        std::vector<Duration> presented;
        for (std::size_t i = 0; i < frames.size(); ++i)
        {
            presented.push_back(frames[i].presentation);
            if (i > 0 && i % 50 != 0)
            {
                EXPECT_EQ(dues[i] - dues[i - 1], Duration(40ms)) << muxer << " " << i;
            }
        }
        EXPECT_FALSE(std::is_sorted(presented.begin(), presented.end())) << "they are reordered";
        std::sort(presented.begin(), presented.end());
        EXPECT_EQ(std::adjacent_find(presented.begin(), presented.end()), presented.end());
    }
}

TEST_F(FilePlayerTest, BlocksOfPcmAreCutTo20Milliseconds)
{
    play(makeClip(
        "audiotestsrc num-buffers=3 samplesperbuffer=4000 ! audio/x-raw,rate=8000,channels=1 ! alawenc ! "
        "matroskamux ! filesink location=CLIP"));
    const auto blocks = take(false, 150);
    ASSERT_EQ(blocks.size(), 150U) << problem;
    for (std::size_t i = 0; i < blocks.size(); ++i)
    {
        EXPECT_EQ(blocks[i].bytes.size(), 160U) << i;
        EXPECT_EQ(blocks[i].presentation - start, i * 20ms) << i;
        EXPECT_EQ(dues[i], blocks[i].presentation) << i;
    }
}

TEST_F(FilePlayerTest, VideoAndAudioThatLieApartInTheFileComeTogether)
{
    play(makeClip(
        std::string(frameLine) +
        "queue max-size-time=0 max-size-buffers=0 max-size-bytes=0 ! matroskamux name=mux ! filesink "
        "location=CLIP "
        "audiotestsrc num-buffers=4 samplesperbuffer=4000 ! audio/x-raw,rate=8000,channels=1 ! alawenc ! "
        "mux."));
    Duration video = 0ms;
    Duration audio = 0ms;
    for (int i = 0; i < 120; ++i)
    {
        ASSERT_TRUE(player->due(start, problem)) << problem;
        const FilePlayer::Item item = player->take();
        (item.video ? video : audio) = item.presentation;
        if (video > 0ms && audio > 0ms)
        {
            EXPECT_LT(std::chrono::abs(video - audio), 80ms) << i;
        }
    }
}

TEST_F(FilePlayerTest, ReadsAheadButNotWithoutBound)
{
    play(
        makeClip("videotestsrc pattern=snow num-buffers=250 ! "
                 "video/x-raw,format=I420,width=640,height=480,framerate=250/1 ! "
                 "x264enc speed-preset=ultrafast key-int-max=1 bitrate=200000 quantizer=1 ! h264parse ! "
                 "matroskamux ! filesink location=CLIP"));
    ASSERT_GT(std::filesystem::file_size(folder / "clip"), 3 * FilePlayer::maxBytes);
    ASSERT_TRUE(player->due(start, problem)) << problem;
    EXPECT_GE(player->heldBytes(), FilePlayer::maxBytes);
    EXPECT_LT(player->heldBytes(), FilePlayer::maxBytes + (1U << 20U));
}

TEST_F(FilePlayerTest, AFileWithoutUnitsEndsWithAReason)
{
    const std::string path = makeClip(std::string(frameLine) + "matroskamux ! filesink location=CLIP");
    std::filesystem::resize_file(path, 700);
    player = std::make_unique<FilePlayer>(path, MediaFile::Kinds(), [] { return false; });
    MediaFile::Problem reason;
    if (player->open(reason))
    {
        EXPECT_FALSE(player->due(start, problem));
        EXPECT_FALSE(problem.empty());
    }
}

TEST_F(FilePlayerTest, AFileThatBecameAnotherEndsWithAReason)
{
    const std::string path = makeClip(std::string(frameLine) + "matroskamux ! filesink location=CLIP");
    play(path);
    ASSERT_FALSE(take(true, 5).empty());
    const std::string other = makeClip(
        "videotestsrc num-buffers=50 ! video/x-raw,format=I420,width=320,height=180,framerate=25/1 ! "
        "x264enc speed-preset=ultrafast ! h264parse ! matroskamux ! filesink location=CLIP",
        "other");
    std::filesystem::rename(other, path);
    EXPECT_LT(take(true, 100).size(), 60U);
    EXPECT_EQ(problem, "the file was changed");
}

}  // namespace
}  // namespace refhost
