#include "refhost/recording/SegmentWriter.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "refhost/recording/SegmentMeasure.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;

class SegmentWriterTest : public testing::Test, protected MadeUnits
{
protected:
    std::unique_ptr<SegmentWriter> create()
    {
        std::string error;
        std::unique_ptr<SegmentWriter> writer =
            SegmentWriter::create(path_, {capturedAt(0), epoch}, {video, audio}, error);
        EXPECT_TRUE(writer) << error;
        return writer;
    }

    // One key frame a second at 25 frames and 50 blocks of audio.
    bool fill(SegmentWriter& writer, double begin, double end)
    {
        bool good = true;
        for (int i = static_cast<int>(begin * 25); i < static_cast<int>(end * 25); ++i)
        {
            good = writer.write(0, *frame(i / 25.0, i % 25 == 0)) && good;
            good = writer.write(1, *block(i / 25.0)) && good;
            good = writer.write(1, *block(i / 25.0 + 0.02)) && good;
        }
        return good;
    }

    double duration() const
    {
        SegmentMeasure measure;
        EXPECT_EQ(SegmentMeasure::take(path_, measure), SegmentMeasure::Result::media);
        return secondsOf(measure.duration);
    }

    TemporaryFolder folder_;
    std::string path_ = folder_ / "made.mkv";
};

TEST_F(SegmentWriterTest, ClosedFileHoldsWhatWasWritten)
{
    const auto writer = create();
    EXPECT_TRUE(fill(*writer, 0, 3));
    EXPECT_TRUE(writer->close());
    EXPECT_EQ(duration(), 3.0);
    EXPECT_EQ(static_cast<std::uintmax_t>(writer->bytes()), std::filesystem::file_size(path_));
    EXPECT_GT(writer->bytes(), 75 * 1000 + 150 * 160);
}

TEST_F(SegmentWriterTest, FlushedMediaAreThereWithoutAClose)
{
    {
        const auto writer = create();
        EXPECT_TRUE(fill(*writer, 0, 2));
        EXPECT_TRUE(writer->flush());
        EXPECT_TRUE(fill(*writer, 2, 2.4));
        EXPECT_EQ(duration(), 2.0);
    }
    EXPECT_EQ(duration(), 2.0);
}

TEST_F(SegmentWriterTest, FileCutOffAnywhereIsMeasuredUpToThere)
{
    {
        const auto writer = create();
        EXPECT_TRUE(fill(*writer, 0, 2));
        EXPECT_TRUE(writer->flush());
    }
    const auto whole = std::filesystem::file_size(path_);
    double before = 2;
    for (const double share : {0.9, 0.6, 0.3})
    {
        std::filesystem::resize_file(path_, static_cast<std::uintmax_t>(static_cast<double>(whole) * share));
        EXPECT_LT(duration(), before);
        EXPECT_NEAR(duration(), 2 * share, 0.1);
        before = duration();
    }
    std::filesystem::resize_file(path_, 300);
    SegmentMeasure measure;
    EXPECT_EQ(SegmentMeasure::take(path_, measure), SegmentMeasure::Result::nothing);
    std::filesystem::resize_file(path_, 0);
    EXPECT_EQ(SegmentMeasure::take(path_, measure), SegmentMeasure::Result::nothing);
}

TEST_F(SegmentWriterTest, EachCodecOfAudioAndH265IsTaken)
{
    for (const Codec codec : {Codec::pcmu, Codec::pcma, Codec::aac, Codec::opus})
    {
        audio = audioFormat(codec);
        path_ = folder_ / (std::to_string(static_cast<int>(codec)) + ".mkv");
        const auto writer = create();
        EXPECT_TRUE(fill(*writer, 0, 1)) << writer->error();
        EXPECT_TRUE(writer->close()) << writer->error();
        EXPECT_EQ(duration(), 1.0);
    }
}

TEST_F(SegmentWriterTest, ReorderedFramesKeepTheirTimes)
{
    const auto writer = create();
    int i = 0;
    for (const double time : {0.0, 0.12, 0.04, 0.08, 0.24, 0.16, 0.2})
    {
        auto unit = std::make_shared<EncodedUnit>(*frame(time, i == 0));
        unit->decodeTime = capturedAt(i * 0.04 - 0.08);
        EXPECT_TRUE(writer->write(0, *unit)) << writer->error();
        ++i;
    }
    EXPECT_TRUE(writer->close());
    EXPECT_NEAR(duration(), 0.28, 0.1);
}

TEST_F(SegmentWriterTest, InvalidDecodeTimesAreAccepted)
{
    const auto writer = create();
    auto unit = std::make_shared<EncodedUnit>(*frame(0, true));
    unit->decodeTime = capturedAt(5);
    EXPECT_TRUE(writer->write(0, *unit));
    unit = std::make_shared<EncodedUnit>(*frame(0.04, false));
    unit->decodeTime = capturedAt(-5);
    EXPECT_TRUE(writer->write(0, *unit));
    EXPECT_TRUE(writer->close());
    EXPECT_EQ(duration(), 0.08);
}

TEST_F(SegmentWriterTest, MalformedDescriptionIsRefusedBeforeThereIsAFile)
{
    EXPECT_TRUE(SegmentWriter::accepts(*video));
    EXPECT_TRUE(SegmentWriter::accepts(*audio));
    EXPECT_TRUE(SegmentWriter::accepts(*audioFormat(Codec::aac)));
    MediaFormat malformed = *audioFormat(Codec::aac);
    malformed.codecData = {0x12, 0x78};  // a number of channels that there is not
    EXPECT_FALSE(SegmentWriter::accepts(malformed));
}

TEST_F(SegmentWriterTest, MalformedUnitIsLeftOutAndIsNoFailureOfTheDisk)
{
    const auto writer = create();
    EXPECT_TRUE(fill(*writer, 0, 1));
    EncodedUnit empty = *frame(1, false);
    empty.bytes.clear();
    EXPECT_TRUE(writer->write(0, empty));
    EXPECT_EQ(writer->leftOut(), 1);
    EXPECT_TRUE(fill(*writer, 1, 2));
    EXPECT_TRUE(writer->close()) << writer->error();
    EXPECT_EQ(duration(), 2.0);
}

TEST_F(SegmentWriterTest, FileThatIsThereIsNotTouched)
{
    std::ofstream(path_) << "mine";
    std::string error;
    EXPECT_FALSE(SegmentWriter::create(path_, {capturedAt(0), epoch}, {video}, error));
    EXPECT_THAT(error, HasSubstr("made.mkv: File exists"));
    EXPECT_EQ(std::filesystem::file_size(path_), 4U);
}

TEST_F(SegmentWriterTest, OthersThanUserAndGroupCannotReadIt)
{
    const auto writer = create();
    struct stat status
    {
    };
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & S_IRWXO, 0U);
}

TEST_F(SegmentWriterTest, FullDiskIsReportedAndFlushedMediaStay)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = 100000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    {
        const auto writer = create();
        bool good = true;
        double time = 0;
        while (good && time < 20)
        {
            good = fill(*writer, time, time + 0.4) && writer->flush();
            time += 0.4;
        }
        EXPECT_FALSE(good);
        EXPECT_THAT(writer->error(), HasSubstr("made.mkv: File too large"));
        EXPECT_FALSE(writer->close());
    }
    limit.rlim_cur = before;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_GT(duration(), 1.5);
}

}  // namespace
}  // namespace refhost
