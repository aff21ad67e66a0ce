#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "refhost/export/Mp4Export.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/recording/RecordingIndex.h"
#include "refhost/recording/SegmentWriter.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/recording/MadeUnits.h"

namespace refhost
{
namespace test
{

/// Recordings of camera 1 in an index of their own: 25 frames a second, a key frame each second, and PCMU audio
/// of 20 ms a block. Every frame's bytes differ.
class ExportTest : public testing::Test, protected MadeUnits
{
protected:
    static constexpr int camera = 1;

    ExportTest()
    {
        std::string error;
        index_ = RecordingIndex::open(folder_ / "recordings", error);
        EXPECT_TRUE(index_) << error;
    }

    /// Presentation time of the i-th frame in decoding order, in frames.
    using Order = int (*)(int);

    /// Records [begin, end), seconds after `epoch`. \returns the file's path
    std::string record(
        double begin, double end, bool close = true, Order order = [](int i) { return i; })
    {
        RecordedSegment segment;
        segment.cameraId = camera;
        segment.begin = at(begin);
        segment.path = folder_ / ("recordings/" + std::to_string(++files_) + ".mkv");
        std::string error;
        SegmentSink::Tracks tracks{video};
        if (audio)
        {
            tracks.push_back(audio);
        }
        const auto writer =
            SegmentWriter::create(segment.path, {capturedAt(begin), at(begin)}, tracks, error);
        EXPECT_TRUE(writer) << error;
        const int frames = static_cast<int>(std::lround((end - begin) * 25));
        for (int i = 0; writer && i < frames; ++i)
        {
            EncodedUnit unit = *frame(begin + order(i) / 25.0, i % 25 == 0, 1000 + ++units_ % 500);
            unit.bytes[8] = static_cast<std::uint8_t>(units_);
            EXPECT_TRUE(writer->write(0, unit));
            for (int half = 0; audio && half < 2; ++half)
            {
                EXPECT_TRUE(writer->write(1, *block(begin + i / 25.0 + half * 0.02)));
            }
            if (i % 12 == 0)
            {
                writer->flush();
            }
        }
        EXPECT_TRUE(close ? writer->close() : writer->flush());
        segment.duration = at(end) - at(begin);
        segment.bytes = writer->bytes();
        segment.closed = close;
        EXPECT_TRUE(index_->add(segment));
        return segment.path;
    }

    std::unique_ptr<Mp4Export> open(double begin, double end)
    {
        ExportPlan::Request request;
        request.cameraId = camera;
        request.begin = at(begin);
        request.end = at(end);
        error_.clear();
        return Mp4Export::open(IndexedRecordings(index_), request, problem_, error_);
    }

    static std::vector<std::uint8_t> bytesOf(Mp4Export& source)
    {
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(source.size()));
        std::string error;
        EXPECT_EQ(source.read(0, bytes.data(), bytes.size(), error), bytes.size()) << error;
        return bytes;
    }

    TemporaryFolder folder_;
    std::shared_ptr<RecordingIndex> index_;
    ExportPlan::Problem problem_{};
    std::string error_;

private:
    int files_ = 0;
    int units_ = 0;
};

}  // namespace test
}  // namespace refhost
