#include "refhost/snapshot/SnapshotService.h"

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "refhost/playback/SegmentFile.h"
#include "tests/refhost/live/LiveFakes.h"
#include "tests/refhost/playback/RecordedMedia.h"
#include "tests/refhost/snapshot/JpegSize.h"

namespace refhost
{
namespace test
{
namespace
{

using Problem = SnapshotService::Problem;

/// Delivers encoded units that the test feeds.
class MediaSource : public FakeSource
{
public:
    void attachMedia(std::shared_ptr<EncodedUnitSink> sink) override
    {
        const std::lock_guard<std::mutex> guard(sinkMutex_);
        sink_ = std::move(sink);
    }
    void detachMedia(const EncodedUnitSink*) override
    {
        const std::lock_guard<std::mutex> guard(sinkMutex_);
        sink_.reset();
    }
    std::shared_ptr<EncodedUnitSink> sink()
    {
        const std::lock_guard<std::mutex> guard(sinkMutex_);
        return sink_;
    }

private:
    std::mutex sinkMutex_;
    std::shared_ptr<EncodedUnitSink> sink_;
};

class OneStream : public StreamDirectory
{
public:
    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override
    {
        return cameraId == 1 && streamId == 0 ? source : nullptr;
    }
    std::shared_ptr<MediaSource> source = std::make_shared<MediaSource>();
};

class SnapshotServiceTest : public RecordedMediaTest
{
protected:
    static constexpr SnapshotService::Pauses pauses{std::chrono::milliseconds(20'000),
                                                    std::chrono::milliseconds(20'000)};

    std::unique_ptr<SnapshotService> make(const SnapshotService::Pauses& given = pauses)
    {
        return std::make_unique<SnapshotService>([this] { return streams; }, [this] { return recordings; },
                                                 given);
    }

    EncodedUnitPtr keyFrame()
    {
        std::string error;
        const auto file = SegmentFile::open(makeFile(1, frames, ""), error);
        CodedUnit unit;
        EXPECT_TRUE(file && file->read(unit) == SegmentFile::Result::unit) << error;
        auto made = std::make_shared<EncodedUnit>();
        made->format = file->video()->format;
        made->bytes = unit.bytes;
        made->keyFrame = true;
        return made;
    }

    static bool eventually(const std::function<bool()>& done)
    {
        for (int i = 0; i < 5000 && !done(); ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return done();
    }

    std::shared_ptr<OneStream> streams = std::make_shared<OneStream>();
};

TEST_F(SnapshotServiceTest, KeyFrameIsDecodedOnceForAWidth)
{
    const auto service = make();
    std::thread source(
        [this]
        {
            EXPECT_TRUE(eventually([this] { return streams->source->sink() != nullptr; }));
            streams->source->sink()->onEncodedUnit(keyFrame());
        });
    const SnapshotService::Result first = service->live(1, 0, 80);
    source.join();
    ASSERT_NE(first.jpeg, nullptr) << first.error;
    EXPECT_EQ(JpegSize::of(*first.jpeg).width, 80);
    for (int i = 0; i < 20; ++i)
    {
        EXPECT_EQ(service->live(1, 0, 80).jpeg, first.jpeg);
    }
    EXPECT_EQ(service->decoded(), 1);
    EXPECT_EQ(JpegSize::of(*service->live(1, 0, 0).jpeg).width, 160);
    EXPECT_EQ(service->decoded(), 2);
    streams->source->sink()->onEncodedUnit(keyFrame());
    EXPECT_NE(service->live(1, 0, 80).name, first.name);
    EXPECT_EQ(service->decoded(), 3);
}

TEST_F(SnapshotServiceTest, SourceRunsAsLongAsSnapshotsAreRequested)
{
    const auto service = make({std::chrono::milliseconds(0), std::chrono::milliseconds(50)});
    EXPECT_EQ(service->live(1, 0, 0).problem, Problem::notReady);
    EXPECT_EQ(streams->source->acquired, 1);
    EXPECT_TRUE(eventually([&] { return service->kept() == 0; }));
    EXPECT_TRUE(
        eventually([&] { return streams->source->viewers == 0 && streams->source->sink() == nullptr; }));
    service->live(1, 0, 0);
    EXPECT_EQ(streams->source->acquired, 2);
}

TEST_F(SnapshotServiceTest, SourceIsLetGoAtTheEnd)
{
    make({std::chrono::milliseconds(0), std::chrono::milliseconds(20'000)})->live(1, 0, 0);
    EXPECT_EQ(streams->source->viewers, 0);
    EXPECT_EQ(streams->source->sink(), nullptr);
}

TEST_F(SnapshotServiceTest, FrameOfAStoppedSourceIsNotUsed)
{
    const auto service = make({std::chrono::milliseconds(0), std::chrono::milliseconds(20'000)});
    service->live(1, 0, 0);
    streams->source->sink()->onEncodedUnit(keyFrame());
    EXPECT_NE(service->live(1, 0, 0).jpeg, nullptr);
    streams->source->sink()->onDiscontinuity();
    EXPECT_EQ(service->live(1, 0, 0).problem, Problem::notReady);
}

TEST_F(SnapshotServiceTest, DamagedAndOtherFramesAreNotKept)
{
    const auto service = make({std::chrono::milliseconds(0), std::chrono::milliseconds(20'000)});
    service->live(1, 0, 0);
    EncodedUnit unit = *keyFrame();
    unit.damaged = true;
    streams->source->sink()->onEncodedUnit(std::make_shared<const EncodedUnit>(unit));
    unit.damaged = false;
    unit.keyFrame = false;
    streams->source->sink()->onEncodedUnit(std::make_shared<const EncodedUnit>(unit));
    EXPECT_EQ(service->live(1, 0, 0).problem, Problem::notReady);
    unit.keyFrame = true;
    unit.bytes.assign(1000, 0x55);
    streams->source->sink()->onEncodedUnit(std::make_shared<const EncodedUnit>(unit));
    EXPECT_EQ(service->live(1, 0, 0).problem, Problem::corrupt);
}

TEST_F(SnapshotServiceTest, UnknownStreamIsRefused)
{
    const auto service = make();
    EXPECT_EQ(service->live(1, 1, 0).problem, Problem::noStream);
    EXPECT_EQ(service->live(2, 0, 0).problem, Problem::noStream);
    EXPECT_EQ(service->kept(), 0U);
}

TEST_F(SnapshotServiceTest, RecordedInstantIsThatOfTheKeyFrameBefore)
{
    addSegment(10, 4);
    const auto service = make();
    const SnapshotService::Result first = service->recorded(1, 0, at(11.2), 80);
    ASSERT_NE(first.jpeg, nullptr) << first.error;
    EXPECT_EQ(JpegSize::of(*first.jpeg).height, 60);
    EXPECT_EQ(service->recorded(1, 0, at(11.9), 80).name, first.name);
    EXPECT_EQ(service->decoded(), 1);
    EXPECT_NE(service->recorded(1, 0, at(12.1), 80).name, first.name);
    EXPECT_EQ(service->recorded(1, 0, at(9.9), 80).problem, Problem::nothing);
    EXPECT_EQ(service->recorded(1, 0, at(14.1), 80).problem, Problem::nothing);
    recordings->complete = false;
    EXPECT_EQ(service->recorded(1, 0, at(14.1), 80).problem, Problem::notReady);
}

TEST_F(SnapshotServiceTest, UnreadableRecordingIsSaid)
{
    const RecordedSegment segment = addSegment(10, 2);
    std::ofstream(segment.path, std::ios::trunc) << "text";
    const SnapshotService::Result result = make()->recorded(1, 0, at(11), 0);
    EXPECT_EQ(result.problem, Problem::corrupt);
    EXPECT_FALSE(result.error.empty());
}

}  // namespace
}  // namespace test
}  // namespace refhost
