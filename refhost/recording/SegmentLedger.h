#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/recording/RecordedSegment.h"
#include "refhost/recording/RecordingIndex.h"
#include "refhost/recording/SegmentWriter.h"
#include "refhost/threads/TaskQueue.h"

namespace refhost
{

/// What recorders have written and the index does not know yet: the newest state of each segment.
///
/// A thread of its own enters it, all segments in one transaction a second, so an index that is locked, missing or on a full disk never holds up a
/// recording. What cannot be entered is kept and tried again; at most `maxKept` segments, beyond those some
/// are forgotten here: their files stay, and RecordingRepair finds them. Threads: any. put(), remove(),
/// isOpen() and holds() never wait for the index.
class SegmentLedger
{
public:
    struct Options
    {
        std::chrono::milliseconds retry{1000};  ///< until an index that did not take something is tried again
        std::size_t maxKept = 4096;             ///< segments, about 300 bytes each
        /// From one transaction of the index to the next one, which enters what changed meanwhile.
        std::chrono::milliseconds interval{1000};
    };

    /// \param directory  of all recordings, without a slash at the end
    /// \param forgotten  called, on any thread, when the index took everything after something was forgotten;
    ///                   may be empty
    SegmentLedger(std::string directory, const Options& options, std::function<void()> forgotten);
    ~SegmentLedger();
    SegmentLedger(const SegmentLedger&) = delete;
    SegmentLedger& operator=(const SegmentLedger&) = delete;

    const std::string& directory() const
    {
        return directory_;
    }

    /// Gives the index, from now on; null takes it away.
    void setIndex(std::shared_ptr<RecordingIndex> index);

    /// Called when the disk is too full for the index, as of a SegmentWriter; before the first segment is
    /// put.
    void setMakeRoom(SegmentWriter::MakeRoom makeRoom);

    /// Notes what is known of a segment now; its path says which. To be called before its file is made.
    void put(const RecordedSegment& segment);
    /// Notes that a segment's file is gone.
    void remove(const std::string& path);

    /// Whether the segment of that path is being written by this process.
    bool isOpen(const std::string& path) const;
    /// Whether the segment of that path is being written, or was and is not in the index yet.
    bool holds(const std::string& path) const;
    /// Segments that the index does not know in their newest state.
    std::size_t kept() const;

    /// Enters everything now, on this thread. \returns false when the index does not take it, or there is
    /// none
    bool flush();
    /// Ends the thread; what was not entered is for RecordingRepair. Nothing may be put any more.
    void close();

private:
    enum class State
    {
        entered,
        changed,
        gone  // the file was removed
    };
    struct Item
    {
        RecordedSegment segment;
        State state = State::changed;
        std::uint64_t version = 0;
        std::uint64_t first = 0;  ///< its first version
    };
    using Items = std::map<std::string, Item>;  // by path

    void change(const std::string& path, const Item& item);
    void bound() OV_REQUIRES(mutex_);
    void flushSoon(Duration delay) OV_REQUIRES(mutex_);
    Duration untilNextFlush() const OV_REQUIRES(mutex_);
    void run();
    bool flushTo(RecordingIndex& index) OV_REQUIRES(flushMutex_) OV_EXCLUDES(mutex_);
    /// In the order in which they came first.
    std::vector<Item> changedItems() const OV_EXCLUDES(mutex_);
    void noteEntered(const std::vector<Item>& entered) OV_EXCLUDES(mutex_);
    void report(bool entered, const std::string& why) OV_REQUIRES(flushMutex_);

    const std::string directory_;
    const Options options_;
    const std::function<void()> forgotten_;
    SegmentWriter::MakeRoom makeRoom_;

    /// Held while the index is written to.
    Mutex flushMutex_;
    bool failing_ OV_GUARDED_BY(flushMutex_) = false;

    mutable Mutex mutex_;
    std::shared_ptr<RecordingIndex> index_ OV_GUARDED_BY(mutex_);
    Items items_ OV_GUARDED_BY(mutex_);
    std::uint64_t version_ OV_GUARDED_BY(mutex_) = 0;
    bool flushPosted_ OV_GUARDED_BY(mutex_) = false;
    std::optional<MonotonicTime> flushed_ OV_GUARDED_BY(mutex_);  ///< when the last flush started
    bool hasForgotten_ OV_GUARDED_BY(mutex_) = false;

    /// Last: its thread uses everything above.
    TaskQueue queue_;
};

}  // namespace refhost
