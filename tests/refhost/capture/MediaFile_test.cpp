#include "refhost/capture/MediaFile.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "tests/refhost/capture/ClipFixture.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

class MediaFileTest : public ClipFixture
{
protected:
    std::unique_ptr<MediaFile> open(const std::string& path, MediaFile::Kinds kinds = {})
    {
        return MediaFile::open(
            path, kinds, [this] { return interrupted; }, problem);
    }

    std::string makeMp4()
    {
        return makeClip(
            std::string(frameLine) +
            "mp4mux name=mux ! filesink location=CLIP "
            "audiotestsrc num-buffers=100 samplesperbuffer=160 ! audio/x-raw,rate=8000,channels=1 ! "
            "avenc_aac ! aacparse ! mux.");
    }

    std::string makeMatroska()
    {
        return makeClip(
            std::string(frameLine) +
            "matroskamux name=mux ! filesink location=CLIP "
            "audiotestsrc num-buffers=4 samplesperbuffer=4000 ! audio/x-raw,rate=8000,channels=1 ! "
            "alawenc ! mux.");
    }

    struct Count
    {
        int frames = 0;
        int keys = 0;
        int blocks = 0;
    };

    /// Reads to the end, which must come.
    static Count countAll(MediaFile& file)
    {
        Count count;
        MediaFile::Unit unit;
        while (file.read(unit) == MediaFile::Result::unit)
        {
            EXPECT_FALSE(unit.bytes.empty());
            EXPECT_NE(unit.format, nullptr);
            count.frames += unit.video ? 1 : 0;
            count.keys += unit.video && unit.key ? 1 : 0;
            count.blocks += unit.video ? 0 : 1;
            if (count.frames + count.blocks > 100'000)
            {
                ADD_FAILURE() << "it never ends";
                break;
            }
        }
        return count;
    }

    static std::string bytesOf(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::string write(const std::string& bytes) const
    {
        std::string path = folder / "written";
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    bool interrupted = false;
    MediaFile::Problem problem;
};

TEST_F(MediaFileTest, ReadsFramesAndAudioWithTheirTimes)
{
    const auto file = open(makeMp4());
    ASSERT_TRUE(file) << problem.text;
    ASSERT_TRUE(file->track(true));
    ASSERT_TRUE(file->track(false));
    EXPECT_EQ(file->track(true)->codec(), Codec::h264);
    EXPECT_EQ(file->track(true)->format->width, 160);
    EXPECT_EQ(file->track(false)->codec(), Codec::aac);
    EXPECT_EQ(file->track(false)->format->sampleRate, 8000);
    MediaFile::Unit unit;
    Duration last = -40ms;
    int frames = 0;
    while (file->read(unit) == MediaFile::Result::unit)
    {
        if (unit.video)
        {
            ASSERT_TRUE(unit.presentation);
            EXPECT_EQ(*unit.presentation - last, Duration(40ms)) << frames;
            EXPECT_EQ(unit.key, frames % 25 == 0) << frames;
            EXPECT_EQ(unit.duration, Duration(40ms));
            last = *unit.presentation;
            ++frames;
        }
    }
    EXPECT_EQ(frames, 50);
}

TEST_F(MediaFileTest, MatroskaIsRead)
{
    const auto file = open(makeMatroska());
    ASSERT_TRUE(file) << problem.text;
    const Count count = countAll(*file);
    EXPECT_EQ(count.frames, 50);
    EXPECT_EQ(count.keys, 2);
    EXPECT_EQ(count.blocks, 4);
}

TEST_F(MediaFileTest, OnlyRequestedTracksAreRead)
{
    const auto file = open(makeMp4(), {true, false});
    ASSERT_TRUE(file) << problem.text;
    EXPECT_EQ(file->track(false), nullptr);
    EXPECT_EQ(countAll(*file).blocks, 0);
    EXPECT_FALSE(open(folder / "clip", {false, false}));
}

TEST_F(MediaFileTest, WhatCannotBeSentAsItIsIsLeftToAnotherReader)
{
    const std::string mpeg4 = makeClip(
        "videotestsrc num-buffers=5 ! video/x-raw,width=160,height=96 ! avenc_mpeg4 ! matroskamux ! "
        "filesink location=CLIP");
    EXPECT_FALSE(open(mpeg4));
    EXPECT_TRUE(problem.otherMeans);
    EXPECT_NE(problem.text.find("mpeg4"), std::string::npos) << problem.text;
    const std::string raw = makeClip(std::string(frameLine) +
                                     "matroskamux name=mux ! filesink location=CLIP "
                                     "audiotestsrc num-buffers=5 ! audio/x-raw,rate=44100,channels=2 ! mux.");
    EXPECT_FALSE(open(raw));
    EXPECT_TRUE(problem.otherMeans);
    EXPECT_TRUE(open(raw, {true, false})) << problem.text;
}

TEST_F(MediaFileTest, OtherContainersAreLeftToAnotherReader)
{
    EXPECT_FALSE(open(makeClip(std::string(frameLine) + "mpegtsmux ! filesink location=CLIP")));
    EXPECT_TRUE(problem.otherMeans);
    EXPECT_EQ(problem.text, "it is neither MP4 nor Matroska");
    const std::string clip = makeMatroska();
    for (const std::string& text :
         {"ffconcat version 1.0\nfile " + clip + "\n", "#EXTM3U\n#EXTINF:2,\n" + clip + "\n", std::string(),
          std::string(10'000, 'x')})
    {
        EXPECT_FALSE(open(write(text))) << text.substr(0, 20);
        EXPECT_TRUE(problem.otherMeans);
        EXPECT_FALSE(problem.text.empty());
    }
}

TEST_F(MediaFileTest, WhatIsNoFileIsRefusedAtOnce)
{
    EXPECT_FALSE(open(folder / "none"));
    EXPECT_FALSE(problem.otherMeans);
    EXPECT_EQ(problem.text, "No such file or directory");
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(open(pipe)) << "nobody writes to it";
    EXPECT_FALSE(problem.otherMeans);
    EXPECT_FALSE(open(folder.path()));
    EXPECT_FALSE(problem.otherMeans);
}

TEST_F(MediaFileTest, EveryPrefixOfAFileIsHandled)
{
    for (const std::string& clip : {makeMp4(), makeMatroska()})
    {
        const std::string whole = bytesOf(clip);
        for (std::size_t size = 0; size < whole.size(); size += size < 2000 ? 13 : 997)
        {
            const auto file = open(write(whole.substr(0, size)));
            EXPECT_TRUE(file || problem.otherMeans);
            EXPECT_LE(file ? countAll(*file).frames : 0, 50);
        }
    }
}

TEST_F(MediaFileTest, CorruptFilesEnd)
{
    std::mt19937 random(7);
    for (const std::string& clip : {makeMp4(), makeMatroska()})
    {
        const std::string whole = bytesOf(clip);
        for (int i = 0; i < 300; ++i)
        {
            std::string bytes = whole;
            // Headers are at the start of Matroska and at the end of MP4.
            for (int change = 0; change < 8; ++change)
            {
                const std::size_t at = random() % 3 == 0   ? random() % bytes.size()
                                       : random() % 2 == 0 ? random() % 1000
                                                           : bytes.size() - 1 - random() % 2000;
                bytes[at] = static_cast<char>(random());
            }
            const auto file = open(write(bytes));
            if (file)
            {
                countAll(*file);
            }
        }
    }
}

TEST_F(MediaFileTest, AnInterruptedReaderReadsNoMore)
{
    const std::string clip = makeMatroska();
    interrupted = true;
    EXPECT_FALSE(open(clip));
    EXPECT_FALSE(problem.otherMeans);
    interrupted = false;
    const auto file = open(clip);
    ASSERT_TRUE(file);
    interrupted = true;
    EXPECT_LT(countAll(*file).frames, 50);
}

}  // namespace
}  // namespace refhost
