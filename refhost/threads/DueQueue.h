#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "refhost/base/Times.h"

namespace refhost
{

/// A queue of entries ordered by due time, and by the order of adding for equal due times.
///
/// Threads: guarded by its owner.
template <class Entry>
class DueQueue
{
public:
    /// Identifies an entry; never reused.
    using Ticket = std::pair<MonotonicTime, std::uint64_t>;

    Ticket add(MonotonicTime due, Entry entry)
    {
        return entries_.emplace(Ticket(due, added_++), std::move(entry)).first->first;
    }

    /// \returns false when the entry is no longer in the queue
    bool remove(const Ticket& ticket)
    {
        return entries_.erase(ticket) > 0;
    }

    /// Removes the first entry if it is due at `now`. \returns nothing when none is due
    std::optional<Entry> takeDue(MonotonicTime now)
    {
        if (entries_.empty() || entries_.begin()->first.first > now)
        {
            return std::nullopt;
        }
        std::optional<Entry> first(std::move(entries_.begin()->second));
        entries_.erase(entries_.begin());
        return first;
    }

    /// Due time of the first entry; MonotonicTime::max() for an empty queue.
    MonotonicTime nextDue() const
    {
        return entries_.empty() ? MonotonicTime::max() : entries_.begin()->first.first;
    }

    bool empty() const
    {
        return entries_.empty();
    }

    std::size_t size() const
    {
        return entries_.size();
    }

private:
    std::map<Ticket, Entry> entries_;
    std::uint64_t added_ = 0;
};

}  // namespace refhost
