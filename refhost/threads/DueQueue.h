#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "refhost/base/Times.h"

namespace refhost
{

/// Entries in the order of their due times; entries with the same due time in the order of adding.
///
/// Threads: guarded by its owner.
template <class Entry>
class DueQueue
{
public:
    /// Names one entry until it was taken or removed; never used again.
    using Ticket = std::pair<MonotonicTime, std::uint64_t>;

    Ticket add(MonotonicTime due, Entry entry)
    {
        return entries_.emplace(Ticket(due, added_++), std::move(entry)).first->first;
    }

    /// \returns false when the entry is not in the queue any more
    bool remove(const Ticket& ticket)
    {
        return entries_.erase(ticket) > 0;
    }

    /// Takes the first entry off the queue, when it is due at `now`.
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

    /// When the first entry is due; MonotonicTime::max() for an empty queue.
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
