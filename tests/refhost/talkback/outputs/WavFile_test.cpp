#include "refhost/talkback/outputs/WavFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "tests/TemporaryFolder.h"
#include "tests/refhost/talkback/AudioSamples.h"

using namespace refhost;
using refhost::test::Bytes;
using refhost::test::Samples;

namespace
{

const PcmFormat mono{8000, 1};

// The content of a file as ffmpeg reads it.
Samples readBy(const std::string& path)
{
    const TemporaryFolder folder;
    return test::ffmpeg("-i " + path + " -f s16le " + (folder / "pcm"))
               ? test::samplesOf(test::readFile(folder / "pcm"))
               : Samples{-1};
}

class WavFileTest : public testing::Test
{
protected:
    const TemporaryFolder folder_;
    const std::string path_ = folder_ / "talk.wav";
    std::string problem_;
    WavFile file_;
};

}  // namespace

TEST_F(WavFileTest, NewFileIsAnEmptyWav)
{
    ASSERT_TRUE(file_.open(path_, {48000, 2}, problem_)) << problem_;
    const Bytes expected{'R', 'I', 'F', 'F', 36, 0, 0,   0,   'W', 'A',  'V',  'E', 'f', 'm', 't',
                         ' ', 16,  0,   0,   0,  1, 0,   2,   0,   0x80, 0xbb, 0,   0,   0,   0xee,
                         2,   0,   4,   0,   16, 0, 'd', 'a', 't', 'a',  0,    0,   0,   0};
    EXPECT_EQ(expected, test::readFile(path_));
}

TEST_F(WavFileTest, IsWholeAfterEachWriteWithoutBeingClosed)
{
    ASSERT_TRUE(file_.open(path_, mono, problem_));
    ASSERT_TRUE(file_.write(0, {1, 2, 3}));
    EXPECT_EQ((Samples{1, 2, 3}), readBy(path_));
    ASSERT_TRUE(file_.write(5, {-4}));
    EXPECT_EQ((Samples{1, 2, 3, 0, 0, -4}), readBy(path_));
    EXPECT_EQ(6u, file_.frames());
}

TEST_F(WavFileTest, IsExtendedWithSilence)
{
    ASSERT_TRUE(file_.open(path_, {8000, 2}, problem_));
    ASSERT_TRUE(file_.write(0, {1, 2}));
    ASSERT_TRUE(file_.extend(3));
    ASSERT_TRUE(file_.extend(1));
    EXPECT_EQ((Samples{1, 2, 0, 0, 0, 0}), readBy(path_));
}

TEST_F(WavFileTest, ExistingFileIsContinued)
{
    ASSERT_TRUE(file_.open(path_, mono, problem_));
    ASSERT_TRUE(file_.write(0, {1, 2, 3}));
    ASSERT_TRUE(file_.open(path_, mono, problem_)) << problem_;
    EXPECT_EQ(3u, file_.frames());
    ASSERT_TRUE(file_.write(file_.frames(), {4}));
    EXPECT_EQ((Samples{1, 2, 3, 4}), readBy(path_));
}

TEST_F(WavFileTest, OutdatedHeaderIsRepaired)
{
    ASSERT_TRUE(file_.open(path_, mono, problem_));
    ASSERT_TRUE(file_.write(0, {1, 2, 3}));
    file_.close();
    Bytes bytes = test::readFile(path_);
    bytes[4] = 36;
    bytes[40] = 0;
    bytes.push_back(9);
    test::writeFile(path_, bytes.data(), bytes.size());
    ASSERT_TRUE(file_.open(path_, mono, problem_)) << problem_;
    EXPECT_EQ(3u, file_.frames()) << "half a sample at the end does not count";
    ASSERT_TRUE(file_.write(3, {4}));
    EXPECT_EQ((Samples{1, 2, 3, 4}), readBy(path_));
}

TEST_F(WavFileTest, OtherFilesAreLeftAlone)
{
    const std::string letter = "Dear reader, this is no audio at all, but a letter of some length.";
    test::writeFile(path_, letter.data(), letter.size());
    EXPECT_FALSE(file_.open(path_, mono, problem_));
    EXPECT_NE(std::string::npos, problem_.find("is no WAV file of 8000 Hz and 1 channels")) << problem_;
    EXPECT_EQ(Bytes(letter.begin(), letter.end()), test::readFile(path_));
    test::writeFile(path_, letter.data(), 10);
    EXPECT_FALSE(file_.open(path_, mono, problem_));
    EXPECT_EQ(10u, test::readFile(path_).size());
}

TEST_F(WavFileTest, AudioOfAnotherFormatIsLeftAlone)
{
    ASSERT_TRUE(file_.open(path_, {48000, 1}, problem_));
    ASSERT_TRUE(file_.write(0, {1, 2, 3}));
    EXPECT_FALSE(file_.open(path_, mono, problem_));
    EXPECT_FALSE(file_.write(3, {4})) << "it is closed";
    EXPECT_EQ((Samples{1, 2, 3}), readBy(path_));
}

TEST_F(WavFileTest, UnwritablePathsAreReported)
{
    EXPECT_FALSE(file_.open(folder_ / "none/talk.wav", mono, problem_));
    EXPECT_NE(std::string::npos, problem_.find("No such file or directory")) << problem_;
    EXPECT_FALSE(file_.open(folder_.path(), mono, problem_));
    EXPECT_NE(std::string::npos, problem_.find("directory")) << problem_;
}

TEST_F(WavFileTest, NamedPipeIsRefusedAndNotWaitedFor)
{
    ASSERT_EQ(0, mkfifo(path_.c_str(), 0600));
    EXPECT_FALSE(file_.open(path_, mono, problem_));
    EXPECT_NE(std::string::npos, problem_.find("no ordinary file")) << problem_;
}

TEST_F(WavFileTest, EndsAtTheFormatsFourGibibytes)
{
    const std::uint64_t max = (0xffffffffULL - 44) / 2;
    ASSERT_TRUE(file_.open(path_, mono, problem_));
    ASSERT_TRUE(file_.write(max - 2, {1}));
    EXPECT_FALSE(file_.write(max - 1, {2, 3}));
    EXPECT_FALSE(file_.extend(max + 1));
    EXPECT_EQ(max - 1, file_.frames()) << "what was there stays";
    ASSERT_TRUE(file_.extend(max));
    EXPECT_FALSE(file_.open(path_, mono, problem_));
    EXPECT_NE(std::string::npos, problem_.find("as long as a WAV file can be")) << problem_;
    EXPECT_EQ(44 + max * 2, std::filesystem::file_size(path_));
}
