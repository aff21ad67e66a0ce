#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/media/ByteSpan.h"
#include "refhost/media/StreamSource.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/snapshot/KeyFrameKeeper.h"
#include "refhost/snapshot/SnapshotCache.h"
#include "refhost/threads/TaskQueue.h"

namespace refhost
{

/// JPEG files of the last key frame of a stream, and of recorded instants.
///
/// A frame is decoded once for each width and then comes from a cache. A live stream's key frame is kept while
/// snapshots of it are requested and Pauses::idle longer; its source runs meanwhile. Calls may wait for a camera
/// or a disk, but for no longer than Pauses::start: not for event loops. Threads: any.
class SnapshotService
{
public:
    static constexpr int minWidth = 16;
    static constexpr int maxWidth = 8192;
    /// Max calls that wait for a source to start.
    static constexpr int maxWaiting = 1;

    struct Pauses
    {
        std::chrono::milliseconds start;  ///< max wait for the first key frame
        std::chrono::milliseconds idle;   ///< from the last request to the end of the source
    };
    static constexpr Pauses usualPauses{std::chrono::seconds(3), std::chrono::seconds(10)};

    enum class Problem
    {
        none,
        noStream,  ///< no such stream is configured
        notReady,  ///< no key frame came in time, or others wait for one
        nothing,   ///< nothing was recorded at that instant
        corrupt    ///< the frame cannot be decoded
    };

    struct Result
    {
        SnapshotCache::Jpeg jpeg;  ///< null: there is a problem
        std::string name;          ///< of the contents: equal names, equal bytes
        Problem problem = Problem::none;
        std::string error;  ///< in plain words
    };

    /// The present ones; they return null when there are none.
    using Streams = std::function<std::shared_ptr<StreamDirectory>()>;
    using Recordings = std::function<std::shared_ptr<const RecordingDirectory>()>;

    SnapshotService(Streams streams, Recordings recordings, const Pauses& pauses = usualPauses);
    /// Lets all sources stop.
    ~SnapshotService();
    SnapshotService(const SnapshotService&) = delete;
    SnapshotService& operator=(const SnapshotService&) = delete;

    /// \param width  pixels; 0, or wider than the stream: as wide as the stream
    Result live(int cameraId, int streamId, int width);
    /// Of the last key frame at or before an instant, in the segment that holds it.
    Result recorded(int cameraId, int streamId, WallTime time, int width);

    /// Number of frames decoded so far.
    int decoded() const
    {
        return decoded_;
    }
    /// Number of streams whose key frame is kept.
    std::size_t kept() const;

private:
    using Key = std::pair<int, int>;
    using Clock = std::chrono::steady_clock;

    struct Entry
    {
        std::shared_ptr<KeyFrameKeeper> keeper;
        Clock::time_point used;
    };

    std::shared_ptr<KeyFrameKeeper> keeperOf(const Key& key, std::shared_ptr<StreamSource> source);
    KeyFrameKeeper::Kept awaitFrame(KeyFrameKeeper& keeper);
    void endIdle(const Key& key);
    Result made(std::string name, const MediaFormat& format, ByteSpan frame, int width);

    const Streams streams_;
    const Recordings recordings_;
    const Pauses pauses_;
    SnapshotCache cache_;
    std::atomic<int> waiting_{0};
    std::atomic<int> decoded_{0};
    mutable Mutex mutex_;
    std::map<Key, Entry> entries_ OV_GUARDED_BY(mutex_);
    TaskQueue queue_;  // last: its thread ends first
};

}  // namespace refhost
