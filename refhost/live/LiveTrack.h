#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <memory>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/live/LiveSettings.h"
#include "refhost/media/AccessUnit.h"

namespace refhost
{

class LiveSession;
class LiveTrack;

/// The access unit that has just arrived.
struct FreshUnit
{
    const LiveTrack* track;
    std::uint64_t index;
    std::uint32_t epoch;
    const AccessUnitPtr& unit;
    MonotonicTime now;
};

/// What the tracks of one stream share about its video.
struct StreamPast
{
    static constexpr MonotonicTime none = MonotonicTime::max();
    /// Capture time of the oldest frame kept; the audio keeps as much.
    std::atomic<MonotonicTime> videoSince{none};
};

/// One track of a camera stream in packets of one size: a ring of its latest access units and the sessions
/// that play it.
///
/// Units are numbered consecutively and never renumbered. Video keeps the current GOP and the previous one,
/// for viewers that are still catching up when a key frame arrives. Threads: any; its locks are never held
/// while a session sends.
class LiveTrack : public AccessUnitSink
{
public:
    LiveTrack(bool video, std::shared_ptr<StreamPast> past, const LiveSettings& settings);
    ~LiveTrack() override;

    void onAccessUnit(AccessUnitPtr unit) override;
    void onDiscontinuity() override;

    /// A unit of the ring; empty when there is none.
    struct Found
    {
        AccessUnitPtr unit;
        std::uint64_t index = 0;
        std::uint32_t epoch = 0;  ///< changes at each discontinuity
    };

    /// The ring around a sender's cursor.
    struct View
    {
        std::uint64_t base;    ///< number of the oldest unit
        std::uint64_t head;    ///< number of the next unit
        std::uint64_t newest;  ///< number of the newest unit to start from, if `startable`
        bool startable;
        Found at;  ///< the requested unit
    };

    /// Number of the next unit.
    std::uint64_t head() const
    {
        return head_.load(std::memory_order_acquire);
    }

    View look(std::uint64_t index) const;
    /// The newest unit that decoding can start from: a key frame, or the last block of audio.
    Found newestStart() const;
    /// The first unit, from number `earliest` on, that was captured at `capture` or later.
    Found firstSince(MonotonicTime capture, std::uint64_t earliest) const;

    /// A session's subscriber slot; kept by the session, changed by the track.
    using SubscriberSlot = std::size_t;
    static constexpr SubscriberSlot noSlot = std::numeric_limits<SubscriberSlot>::max();

    /// Pumps `session` for each new unit, until leave().
    /// \param slot  lives until leave()
    void join(std::shared_ptr<LiveSession> session, SubscriberSlot& slot);
    /// The session may be pumped once more, if a fan-out is in progress.
    void leave(SubscriberSlot& slot);
    /// Number of sessions with a slot.
    std::size_t viewers() const;

private:
    struct Entry
    {
        AccessUnitPtr unit;
        std::uint32_t epoch;
    };

    struct Member
    {
        std::shared_ptr<LiveSession> session;
        SubscriberSlot* slot;
    };

    std::uint64_t push(AccessUnitPtr unit, std::uint32_t& epoch);
    void trim() OV_REQUIRES(ringMutex_);
    void popFront() OV_REQUIRES(ringMutex_);
    void refreshSubscribers();
    Found found(std::uint64_t index) const OV_REQUIRES(ringMutex_);

    const bool video_;
    const std::shared_ptr<StreamPast> past_;
    const LiveSettings settings_;

    mutable Mutex ringMutex_;
    std::deque<Entry> ring_ OV_GUARDED_BY(ringMutex_);
    std::size_t ringBytes_ OV_GUARDED_BY(ringMutex_) = 0;
    std::uint64_t base_ OV_GUARDED_BY(ringMutex_) = 0;
    std::uint64_t start_ OV_GUARDED_BY(ringMutex_) = 0;     // newest unit to start from
    std::uint64_t previous_ OV_GUARDED_BY(ringMutex_) = 0;  // the one before
    bool startable_ OV_GUARDED_BY(ringMutex_) = false;
    std::uint32_t epoch_ OV_GUARDED_BY(ringMutex_) = 0;
    std::atomic<std::uint64_t> head_{0};  // written under the lock

    mutable Mutex membersMutex_;
    std::vector<Member> members_ OV_GUARDED_BY(membersMutex_);
    std::atomic<bool> membersChanged_{false};                // written under the lock
    std::vector<std::shared_ptr<LiveSession>> subscribers_;  // copy of members_ for the source's thread
};

}  // namespace refhost
