#include "refhost/recording/SegmentLedger.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"

namespace refhost
{

SegmentLedger::SegmentLedger(std::string directory, const Options& options, std::function<void()> forgotten)
    : directory_(std::move(directory)), options_(options), forgotten_(std::move(forgotten))
{
}

SegmentLedger::~SegmentLedger()
{
    close();
}

void SegmentLedger::setIndex(std::shared_ptr<RecordingIndex> index)
{
    const MutexLock guard(mutex_);
    index_ = std::move(index);
    flushSoon(Duration::zero());
}

void SegmentLedger::setMakeRoom(SegmentWriter::MakeRoom makeRoom)
{
    makeRoom_ = std::move(makeRoom);
}

void SegmentLedger::put(const RecordedSegment& segment)
{
    change(segment.path, {segment, State::changed, 0, 0});
}

void SegmentLedger::remove(const std::string& path)
{
    Item item;
    item.segment.path = path;
    item.segment.closed = true;
    item.state = State::gone;
    change(path, item);
}

void SegmentLedger::change(const std::string& path, const Item& item)
{
    const MutexLock guard(mutex_);
    Item& known = items_[path];
    const std::uint64_t first = known.first;
    known = item;
    known.version = ++version_;
    known.first = first == 0 ? version_ : first;
    bound();
    flushSoon(untilNextFlush());
}

bool SegmentLedger::isOpen(const std::string& path) const
{
    const MutexLock guard(mutex_);
    const auto known = items_.find(path);
    return known != items_.end() && !known->second.segment.closed;
}

bool SegmentLedger::holds(const std::string& path) const
{
    const MutexLock guard(mutex_);
    return items_.count(path) != 0;
}

std::size_t SegmentLedger::kept() const
{
    const MutexLock guard(mutex_);
    std::size_t count = 0;
    for (const auto& [path, item] : items_)
    {
        count += item.state == State::entered ? 0 : 1;
    }
    return count;
}

/// Drops closed segments alone: open ones are few, and isOpen() protects their files.
void SegmentLedger::bound()
{
    for (auto item = items_.begin(); items_.size() > options_.maxKept && item != items_.end();)
    {
        const bool closed = item->second.segment.closed;
        hasForgotten_ = hasForgotten_ || closed;
        item = closed ? items_.erase(item) : std::next(item);
    }
}

Duration SegmentLedger::untilNextFlush() const
{
    if (!flushed_)
    {
        return Duration::zero();
    }
    return std::max(*flushed_ + options_.interval - HostClock::system().now(), Duration::zero());
}

void SegmentLedger::flushSoon(Duration delay)
{
    if (!flushPosted_)
    {
        flushPosted_ = true;
        queue_.post([this] { run(); }, delay);
    }
}

void SegmentLedger::run()
{
    {
        const MutexLock guard(mutex_);
        flushPosted_ = false;
    }
    if (flush())
    {
        return;
    }
    const MutexLock guard(mutex_);
    if (index_ && !flushPosted_)
    {
        flushSoon(options_.retry);
    }
}

bool SegmentLedger::flush()
{
    const MutexLock flushing(flushMutex_);
    std::shared_ptr<RecordingIndex> index;
    {
        const MutexLock guard(mutex_);
        index = index_;
        flushed_ = HostClock::system().now();
    }
    if (!index)
    {
        return false;
    }
    const bool done = flushTo(*index);
    report(done, done ? std::string() : index->lastError());
    bool forgotten = false;
    if (done)
    {
        const MutexLock guard(mutex_);
        forgotten = std::exchange(hasForgotten_, false);
    }
    if (forgotten && forgotten_)
    {
        forgotten_();
    }
    return done;
}

bool SegmentLedger::flushTo(RecordingIndex& index)
{
    constexpr int maxAttempts = 4;
    for (int attempt = 0;; ++attempt)
    {
        // Read again each time: making room changes items.
        const std::vector<Item> changed = changedItems();
        std::vector<RecordingIndex::Change> changes;
        changes.reserve(changed.size());
        for (const Item& item : changed)
        {
            changes.push_back({item.segment, item.state == State::gone});
        }
        if (changes.empty() || index.apply(changes))
        {
            noteEntered(changed);
            return true;
        }
        if (!index.foundDiskFull() || !makeRoom_ || attempt >= maxAttempts || !makeRoom_(attempt > 0))
        {
            return false;
        }
    }
}

std::vector<SegmentLedger::Item> SegmentLedger::changedItems() const
{
    std::vector<Item> changed;
    {
        const MutexLock guard(mutex_);
        for (const auto& [path, item] : items_)
        {
            if (item.state != State::entered)
            {
                changed.push_back(item);
            }
        }
    }
    std::sort(changed.begin(), changed.end(),
              [](const Item& left, const Item& right) { return left.first < right.first; });
    return changed;
}

/// Items that changed meanwhile stay marked, and are entered again.
void SegmentLedger::noteEntered(const std::vector<Item>& entered)
{
    const MutexLock guard(mutex_);
    for (const Item& item : entered)
    {
        const auto known = items_.find(item.segment.path);
        if (known == items_.end() || known->second.version != item.version)
        {
            continue;
        }
        known->second.state = State::entered;
        if (known->second.segment.closed)
        {
            items_.erase(known);
        }
    }
}

void SegmentLedger::report(bool entered, const std::string& why)
{
    if (!entered && !failing_)
    {
        Log::warning(
            "the index of the recordings cannot be written: {}; what is recorded is kept in memory until it "
            "can",
            Log::safe(why));
    }
    if (entered && failing_)
    {
        Log::info("the index of the recordings can be written again; nothing of it is missing");
    }
    failing_ = !entered;
}

void SegmentLedger::close()
{
    queue_.close();
}

}  // namespace refhost
