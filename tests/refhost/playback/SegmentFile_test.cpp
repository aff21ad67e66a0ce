#include "refhost/playback/SegmentFile.h"

#include <gtest/gtest.h>

#include "tests/CapturedErrors.h"
#include "tests/refhost/playback/RecordedMedia.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr Duration second = std::chrono::seconds(1);

class SegmentFileTest : public RecordedMediaTest
{
protected:
    static std::unique_ptr<SegmentFile> open(const std::string& path)
    {
        std::string error;
        auto file = SegmentFile::open(path, error);
        EXPECT_TRUE(file) << error;
        return file;
    }

    struct Count
    {
        int frames = 0;
        int keys = 0;
        int blocks = 0;
        Duration lastFrame{-1};
    };

    static Count countRest(SegmentFile& file)
    {
        Count count;
        CodedUnit unit;
        while (file.read(unit) == SegmentFile::Result::unit)
        {
            count.frames += unit.video ? 1 : 0;
            count.keys += unit.video && unit.key ? 1 : 0;
            count.blocks += unit.video ? 0 : 1;
            count.lastFrame = unit.video ? unit.offset : count.lastFrame;
        }
        return count;
    }

    /// Bytes that this process has read from files so far.
    static std::uint64_t bytesRead()
    {
        std::ifstream counters("/proc/self/io");
        std::string name;
        std::uint64_t bytes = 0;
        counters >> name >> bytes;
        EXPECT_EQ(name, "rchar:");
        return bytes;
    }

    /// Offset of the next frame, which is a key frame; negative without any.
    static Duration firstFrame(SegmentFile& file)
    {
        CodedUnit unit;
        while (file.read(unit) == SegmentFile::Result::unit)
        {
            if (unit.video)
            {
                EXPECT_TRUE(unit.key);
                return unit.offset;
            }
        }
        return Duration(-1);
    }
};

TEST_F(SegmentFileTest, OnlyAFileThatIsThereAndCannotBeReadIsAWarning)
{
    CapturedErrors log;
    SegmentFile::reportLeftOut("/no/such/file.mkv", "No such file or directory");
    SegmentFile::reportLeftOut("/dev/null", "invalid data");
    const auto lines = log.linesWith("cannot be played");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[0].find(" info "), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find(" warning "), std::string::npos) << lines[1];
}

TEST_F(SegmentFileTest, EveryUnitIsRead)
{
    const auto file = open(makeFile(3));
    ASSERT_TRUE(file->video());
    ASSERT_TRUE(file->audio());
    EXPECT_EQ(file->video()->codec(), Codec::h264);
    EXPECT_EQ(file->audio()->codec(), Codec::pcma);
    const Count count = countRest(*file);
    EXPECT_EQ(count.frames, 75);
    EXPECT_EQ(count.keys, 3);
    EXPECT_EQ(count.blocks, 150);
    EXPECT_EQ(count.lastFrame, std::chrono::milliseconds(2960));
}

TEST_F(SegmentFileTest, SeekGoesToTheKeyFrameAtOrBefore)
{
    const auto file = open(makeFile(5));
    for (const auto& [to, key] : {std::pair{2.5, 2}, {3.0, 3}, {0.0, 0}, {4.96, 4}, {9.0, 4}, {0.99, 0}})
    {
        ASSERT_TRUE(file->seek(durationOf(std::chrono::duration<double>(to))));
        EXPECT_EQ(firstFrame(*file), key * second) << to;
    }
}

TEST_F(SegmentFileTest, TruncatedFileIsReadAndSeekableUpToItsEnd)
{
    const std::string path = makeFile(5);
    cut(path, 0.7);
    const auto file = open(path);
    const Count count = countRest(*file);
    EXPECT_GT(count.frames, 60);
    EXPECT_LT(count.frames, 125);
    ASSERT_TRUE(file->seek(second * 5 / 2));
    EXPECT_EQ(firstFrame(*file), 2 * second);
    ASSERT_TRUE(file->seek(second * 50));
    EXPECT_EQ(firstFrame(*file), count.lastFrame / second * second);
}

TEST_F(SegmentFileTest, GrownFileIsReadOnWithoutStartingAgain)
{
    const std::string whole =
        makeFile(20, "x264enc speed-preset=ultrafast key-int-max=25 bitrate=4000 ! h264parse");
    const std::string path = directory_ + "/growing.mkv";
    std::filesystem::copy_file(whole, path);
    cut(path, 0.9);
    const auto before = open(path);
    const Count count = countRest(*before);
    std::filesystem::copy_file(whole, path, std::filesystem::copy_options::overwrite_existing);
    cut(path, 0.95);
    const std::uint64_t readBefore = bytesRead();
    std::string error;
    const auto file = before->again(error);
    ASSERT_TRUE(file) << error;
    ASSERT_TRUE(file->seek(count.lastFrame));
    EXPECT_LT(bytesRead() - readBefore, std::filesystem::file_size(path) / 4);
    EXPECT_EQ(firstFrame(*file), count.lastFrame / second * second);
    EXPECT_GT(countRest(*file).lastFrame, count.lastFrame);
    ASSERT_TRUE(file->seek(2 * second)) << "and what is before it is found too";
    EXPECT_EQ(firstFrame(*file), 2 * second);
}

TEST_F(SegmentFileTest, WhatIsNoRecordingIsRefused)
{
    std::string error;
    EXPECT_FALSE(SegmentFile::open(directory_ + "/none.mkv", error));
    EXPECT_FALSE(error.empty());
    const std::string path = directory_ + "/text.mkv";
    std::ofstream(path) << std::string(100'000, 'x');
    error.clear();
    EXPECT_FALSE(SegmentFile::open(path, error));
    EXPECT_FALSE(error.empty());
    std::ofstream(path, std::ios::trunc).close();
    EXPECT_FALSE(SegmentFile::open(path, error));
}

TEST_F(SegmentFileTest, EveryPrefixOfAFileIsHandled)
{
    const std::string whole = makeFile(1);
    const auto size = std::filesystem::file_size(whole);
    for (std::uintmax_t length = 0; length < size; length += 97)
    {
        const std::string path = directory_ + "/prefix.mkv";
        std::filesystem::copy_file(whole, path, std::filesystem::copy_options::overwrite_existing);
        std::filesystem::resize_file(path, length);
        std::string error;
        const auto file = SegmentFile::open(path, error);
        if (file)
        {
            EXPECT_LE(countRest(*file).frames, 25);
            file->seek(second / 2);
        }
    }
}

TEST_F(SegmentFileTest, CorruptionInTheMiddleLosesOnlyItself)
{
    const std::string path = makeFile(5);
    {
        std::fstream bytes(path, std::ios::in | std::ios::out | std::ios::binary);
        bytes.seekp(static_cast<std::streamoff>(std::filesystem::file_size(path) / 2));
        const std::string rubbish(300, '\xff');
        bytes.write(rubbish.data(), static_cast<std::streamsize>(rubbish.size()));
    }
    const auto file = open(path);
    EXPECT_GT(countRest(*file).frames, 50);
}

TEST_F(SegmentFileTest, AudioOnlyFileIsSeekable)
{
    const auto file = open(makeFile(5, ""));
    EXPECT_FALSE(file->video());
    ASSERT_TRUE(file->seek(2 * second));
    CodedUnit unit;
    ASSERT_EQ(file->read(unit), SegmentFile::Result::unit);
    EXPECT_NEAR(secondsOf(unit.offset), 2, 0.021);
}

TEST_F(SegmentFileTest, AacAndH265AreKnown)
{
    const auto file = open(
        makeFile(1, "x265enc speed-preset=ultrafast key-int-max=25 ! h265parse", "avenc_aac ! aacparse"));
    ASSERT_TRUE(file->video());
    ASSERT_TRUE(file->audio());
    EXPECT_EQ(file->video()->codec(), Codec::h265);
    EXPECT_EQ(file->audio()->codec(), Codec::aac);
}

}  // namespace
}  // namespace test
}  // namespace refhost
