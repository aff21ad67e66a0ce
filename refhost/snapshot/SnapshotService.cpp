#include "refhost/snapshot/SnapshotService.h"

#include <fmt/format.h>

#include <optional>
#include <vector>

#include "refhost/playback/SegmentFile.h"
#include "refhost/snapshot/JpegMaker.h"

namespace refhost
{
namespace
{

using Result = SnapshotService::Result;
using Problem = SnapshotService::Problem;

Result failure(Problem problem, std::string error)
{
    Result result;
    result.problem = problem;
    result.error = std::move(error);
    return result;
}

}  // namespace

SnapshotService::SnapshotService(Streams streams, Recordings recordings, const Pauses& pauses)
    : streams_(std::move(streams)), recordings_(std::move(recordings)), pauses_(pauses)
{
}

SnapshotService::~SnapshotService()
{
    queue_.close();
    std::map<Key, Entry> left;
    {
        const MutexLock guard(mutex_);
        left.swap(entries_);
    }
    for (const auto& [key, entry] : left)
    {
        entry.keeper->stop();
    }
}

std::size_t SnapshotService::kept() const
{
    const MutexLock guard(mutex_);
    return entries_.size();
}

Result SnapshotService::live(int cameraId, int streamId, int width)
{
    const auto streams = streams_();
    auto source = streams == nullptr ? nullptr : streams->find(cameraId, streamId);
    if (source == nullptr)
    {
        return failure(Problem::noStream, "there is no such stream");
    }
    const auto keeper = keeperOf({cameraId, streamId}, std::move(source));
    const KeyFrameKeeper::Kept kept = awaitFrame(*keeper);
    if (!kept.unit)
    {
        return failure(Problem::notReady, "the stream has no key frame yet");
    }
    const MutexLock guard(keeper->making());
    return made(fmt::format("{}-{}", kept.number, width), *kept.unit->format, kept.unit->bytes, width);
}

KeyFrameKeeper::Kept SnapshotService::awaitFrame(KeyFrameKeeper& keeper)
{
    KeyFrameKeeper::Kept kept = keeper.await(std::chrono::milliseconds(0));
    if (kept.unit)
    {
        return kept;
    }
    if (waiting_.fetch_add(1) < maxWaiting)
    {
        keeper.source()->requestKeyFrame();
        kept = keeper.await(pauses_.start);
    }
    --waiting_;
    return kept;
}

std::shared_ptr<KeyFrameKeeper> SnapshotService::keeperOf(const Key& key,
                                                          std::shared_ptr<StreamSource> source)
{
    std::shared_ptr<KeyFrameKeeper> replaced;
    std::shared_ptr<KeyFrameKeeper> keeper;
    {
        const MutexLock guard(mutex_);
        Entry& entry = entries_[key];
        if (entry.keeper == nullptr || entry.keeper->source() != source)
        {
            replaced = std::move(entry.keeper);
            entry.keeper = KeyFrameKeeper::start(std::move(source));
            if (replaced == nullptr)
            {
                queue_.post([this, key] { endIdle(key); }, pauses_.idle);
            }
        }
        entry.used = Clock::now();
        keeper = entry.keeper;
    }
    if (replaced != nullptr)
    {
        replaced->stop();
    }
    return keeper;
}

void SnapshotService::endIdle(const Key& key)
{
    std::shared_ptr<KeyFrameKeeper> ended;
    {
        const MutexLock guard(mutex_);
        const auto found = entries_.find(key);
        const auto left = found->second.used + pauses_.idle - Clock::now();
        if (left > Clock::duration::zero())
        {
            queue_.post([this, key] { endIdle(key); }, left);
            return;
        }
        ended = std::move(found->second.keeper);
        entries_.erase(found);
    }
    ended->stop();
}

Result SnapshotService::recorded(int cameraId, int streamId, WallTime time, int width)
{
    constexpr int maxUnits = 1000;
    const auto recordings = recordings_();
    const std::vector<RecordedSegment> found =
        recordings == nullptr
            ? std::vector<RecordedSegment>()
            : recordings->find(cameraId, streamId, time, time + Duration(1), 1, SegmentPlace());
    if (found.empty())
    {
        const bool ready = recordings == nullptr || recordings->isComplete();
        return ready ? failure(Problem::nothing, "nothing was recorded at that time")
                     : failure(Problem::notReady, "the index of the recordings is being repaired");
    }
    const RecordedSegment& segment = found.front();
    std::string error;
    const auto file = SegmentFile::open(segment.path, error);
    if (file == nullptr || file->video() == nullptr)
    {
        return file == nullptr ? failure(Problem::corrupt, "the recording cannot be read: " + error)
                               : failure(Problem::nothing, "no video was recorded at that time");
    }
    CodedUnit unit;
    bool there = file->seek(time - segment.begin);
    for (int i = 0; there && i < maxUnits; ++i)
    {
        there = file->read(unit) == SegmentFile::Result::unit;
        if (there && unit.video && unit.key)
        {
            return made(fmt::format("{}-{}-{}-{}-{}", segment.id, unixSeconds(segment.begin),
                                    unit.offset.count(), unit.bytes.size(), width),
                        *file->video()->format, unit.bytes, width);
        }
    }
    return failure(Problem::corrupt, "the recording is corrupt at that time");
}

/// From the cache, or decoded now.
Result SnapshotService::made(std::string name, const MediaFormat& format, ByteSpan frame, int width)
{
    Result result;
    result.jpeg = cache_.find(name);
    if (result.jpeg == nullptr)
    {
        ++decoded_;
        auto jpeg = JpegMaker::make(format, frame, width, result.error);
        if (!jpeg)
        {
            result.problem = Problem::corrupt;
            return result;
        }
        result.jpeg = std::make_shared<const std::string>(std::move(*jpeg));
        cache_.add(name, result.jpeg);
    }
    result.name = std::move(name);
    return result;
}

}  // namespace refhost
