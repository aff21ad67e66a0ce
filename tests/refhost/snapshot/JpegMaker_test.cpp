#include "refhost/snapshot/JpegMaker.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "refhost/playback/SegmentFile.h"
#include "tests/refhost/playback/RecordedMedia.h"
#include "tests/refhost/snapshot/JpegSize.h"

namespace refhost
{
namespace test
{
namespace
{

class JpegMakerTest : public RecordedMediaTest
{
protected:
    struct Frame
    {
        MediaFormat format;
        std::vector<std::uint8_t> bytes;
    };

    Frame frameOf(const std::string& encoder)
    {
        std::string error;
        const auto file = SegmentFile::open(makeFile(1, encoder, ""), error);
        CodedUnit unit;
        EXPECT_TRUE(file && file->read(unit) == SegmentFile::Result::unit) << error;
        return {*file->video()->format, unit.bytes};
    }

    static JpegSize sizeOf(const std::optional<std::string>& jpeg)
    {
        EXPECT_TRUE(jpeg);
        return JpegSize::of(jpeg.value_or(""));
    }

    std::string error_;
};

TEST_F(JpegMakerTest, KeyFrameBecomesAJpegOfItsSize)
{
    for (const char* encoder : {frames, "x265enc tune=zerolatency speed-preset=ultrafast ! h265parse"})
    {
        const Frame frame = frameOf(encoder);
        const JpegSize size = sizeOf(JpegMaker::make(frame.format, frame.bytes, 0, error_));
        EXPECT_EQ(size.width, 160) << encoder << error_;
        EXPECT_EQ(size.height, 120) << encoder;
    }
}

TEST_F(JpegMakerTest, HeightFollowsTheWidthAndNothingIsEnlarged)
{
    const Frame frame = frameOf(frames);
    EXPECT_EQ(sizeOf(JpegMaker::make(frame.format, frame.bytes, 80, error_)).height, 60);
    EXPECT_EQ(sizeOf(JpegMaker::make(frame.format, frame.bytes, 16, error_)).width, 16);
    EXPECT_EQ(sizeOf(JpegMaker::make(frame.format, frame.bytes, 4000, error_)).width, 160);
}

TEST_F(JpegMakerTest, MotionJpegOfThatWidthStaysAsItIs)
{
    const Frame frame = frameOf(frames);
    const std::string jpeg = JpegMaker::make(frame.format, frame.bytes, 0, error_).value_or("");
    MediaFormat motion;
    motion.codec = Codec::mjpeg;
    const std::vector<std::uint8_t> bytes(jpeg.begin(), jpeg.end());
    EXPECT_EQ(JpegMaker::make(motion, bytes, 0, error_), jpeg);
    EXPECT_EQ(JpegMaker::make(motion, bytes, 160, error_), jpeg);
    EXPECT_EQ(sizeOf(JpegMaker::make(motion, bytes, 80, error_)).width, 80);
}

TEST_F(JpegMakerTest, CorruptFramesAreRefusedWithAReason)
{
    Frame frame = frameOf(frames);
    EXPECT_FALSE(JpegMaker::make(frame.format, {}, 0, error_));
    std::fill(frame.bytes.begin() + 4, frame.bytes.end(), std::uint8_t{0x55});
    EXPECT_FALSE(JpegMaker::make(frame.format, frame.bytes, 0, error_));
    EXPECT_EQ(error_, "the frame is corrupt");
}

TEST_F(JpegMakerTest, NoPrefixAndNoChangedByteDoesHarm)
{
    const Frame frame = frameOf(frames);
    for (std::size_t size = 1; size < frame.bytes.size(); size += 61)
    {
        JpegMaker::make(frame.format, ByteSpan(frame.bytes).first(size), 32, error_);
        std::vector<std::uint8_t> changed = frame.bytes;
        changed[size] ^= 0xffU;
        JpegMaker::make(frame.format, changed, 32, error_);
    }
    MediaFormat truncated = frame.format;
    while (!truncated.codecData.empty())
    {
        truncated.codecData.pop_back();
        JpegMaker::make(truncated, frame.bytes, 32, error_);
    }
}

}  // namespace
}  // namespace test
}  // namespace refhost
