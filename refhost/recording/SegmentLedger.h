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
/// A thread of its own enters all of them in one transaction a second, so that an index that is locked,
/// missing or on a full disk never holds up a recording. What cannot be entered is kept and tried again, up to
/// `maxKept` segments; beyond, closed ones are dropped. Their files stay, and RecordingRepair finds them.
///
/// Threads: any. put(), remove(), isOpen() and holds() never wait for the index.
class SegmentLedger
{
public:
    struct Options
    {
        std::chrono::milliseconds retry{1000};  ///< pause after the index refused something
        std::size_t maxKept = 4096;             ///< segments, about 300 bytes each
        /// Between the starts of two transactions.
        std::chrono::milliseconds interval{1000};
    };

    /// \param directory  of all recordings, without a slash at the end
    /// \param forgotten  called on any thread once the index took everything after segments were dropped; may
    ///                   be empty
    SegmentLedger(std::string directory, const Options& options, std::function<void()> forgotten);
    ~SegmentLedger();
    SegmentLedger(const SegmentLedger&) = delete;
    SegmentLedger& operator=(const SegmentLedger&) = delete;

    const std::string& directory() const
    {
        return directory_;
    }

    /// Sets the index; null: none for now.
    void setIndex(std::shared_ptr<RecordingIndex> index);

    /// Sets what makes room when the disk is too full for the index.
    /// Requires: no segment was put yet.
    void setMakeRoom(SegmentWriter::MakeRoom makeRoom);

    /// Enters or updates the segment of a path. Call it before the file is made, so that isOpen() protects it.
    void put(const RecordedSegment& segment);
    /// The segment's file was removed.
    void remove(const std::string& path);

    /// Whether the segment of that path is being written by this process.
    bool isOpen(const std::string& path) const;
    /// Whether the segment of that path is being written, or not in the index yet.
    bool holds(const std::string& path) const;
    /// Number of segments whose newest state is not in the index yet.
    std::size_t kept() const;

    /// Enters everything now, on the caller's thread.
    /// \returns false when the index refused something, or there is none
    bool flush();
    /// Ends the thread. What was not entered is left to RecordingRepair; nothing may be put any more.
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
    /// In the order of their first put().
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
