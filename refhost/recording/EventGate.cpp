#include "refhost/recording/EventGate.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

#include "refhost/media/Codec.h"
#include "refhost/recording/SegmentCutter.h"

namespace refhost
{
namespace
{

/// Max step back of capture times that is reordering and not a jump.
constexpr Duration maxReordering = std::chrono::seconds(1);
/// How long units are under way from their capture to the gate at most, where the source runs.
constexpr Duration maxDelay = std::chrono::seconds(2);
/// Audio without video is held in blocks of this length.
constexpr Duration audioBlock = std::chrono::seconds(1);

/// Approximate memory of a unit.
std::size_t sizeOf(const EncodedUnit& unit)
{
    return unit.bytes.size() + sizeof(EncodedUnit);
}

std::size_t sizeOf(const EventGate::Units& units)
{
    return std::accumulate(units.begin(), units.end(), std::size_t{0},
                           [](std::size_t sum, const EncodedUnitPtr& unit) { return sum + sizeOf(*unit); });
}

}  // namespace

EventGate::~EventGate()
{
    clear();
}

void EventGate::clear()
{
    // Without anything held the budget may be gone.
    if (bytes_ > 0)
    {
        budget_.release(std::exchange(bytes_, 0));
    }
    held_.clear();
}

bool EventGate::takeShortage()
{
    return std::exchange(shortage_, false);
}

void EventGate::setRolls(const std::optional<Rolls>& rolls, MonotonicTime now, Units& out)
{
    if (!rolls && rolls_ && !until_)
    {
        give(now, out);
    }
    if (!rolls)
    {
        until_.reset();
    }
    else if (!rolls_)
    {
        until_ = now;
    }
    rolls_ = rolls;
}

void EventGate::open(MonotonicTime now, const std::optional<Duration>& after, Units& out)
{
    if (!rolls_)
    {
        return;
    }
    if (!until_)
    {
        give(now, out);
    }
    const MonotonicTime until = now + after.value_or(rolls_->after);
    until_ = std::max(until_.value_or(until), until);
}

void EventGate::take(const EncodedUnitPtr& unit, Units& out)
{
    const bool video = isVideo(unit->format->codec);
    if (video && !std::exchange(hasVideo_, true) && isOnEvents())
    {
        dropAudio();
    }
    const bool reference = video || !hasVideo_;
    if (isOpen() && !isOver(*unit, reference))
    {
        out.push_back(unit);
        return;
    }
    if (std::exchange(until_, std::nullopt))
    {
        out.push_back(nullptr);
    }
    keep(unit, reference);
}

void EventGate::interrupt(Units& out)
{
    hasVideo_ = false;
    if (isOpen())
    {
        out.push_back(nullptr);
        return;
    }
    interruptHeld();
}

bool EventGate::isOver(const EncodedUnit& unit, bool reference) const
{
    if (!until_ || unit.captureTime < *until_)
    {
        return false;
    }
    return (reference && unit.keyFrame) || unit.captureTime >= *until_ + maxOverrun;
}

void EventGate::keep(const EncodedUnitPtr& unit, bool reference)
{
    const MonotonicTime time = unit->captureTime;
    const bool back = reference && last_ && time < *last_ - maxReordering;
    if (back || (reference && last_ && time > *last_ + SegmentCutter::maxPause))
    {
        interruptHeld();
    }
    if (back)
    {
        clear();
    }
    last_ = reference ? time : last_;
    const bool goesOn = !held_.empty() && !held_.back().interrupted;
    const bool starts =
        reference && unit->keyFrame && (hasVideo_ || !goesOn || time >= held_.back().begin + audioBlock);
    if (!starts && !goesOn)
    {
        return;
    }
    if (starts)
    {
        if (goesOn)
        {
            held_.back().end = time;
        }
        held_.push_back({time, time, {}});
    }
    if (!makeRoom(sizeOf(*unit)))
    {
        return;
    }
    held_.back().units.push_back(unit);
    held_.back().end = std::max(held_.back().end, time);
    trim(time - rolls_->before);
}

/// \returns false when nothing is held any more: the next key frame is waited for
bool EventGate::makeRoom(std::size_t bytes)
{
    while (bytes_ + bytes > maxBytes || !budget_.reserve(bytes))
    {
        shortage_ = true;
        if (held_.empty())
        {
            return false;
        }
        dropFirst();
    }
    if (held_.empty())
    {
        budget_.release(bytes);
        return false;
    }
    bytes_ += bytes;
    return true;
}

/// Drops what ended before `begin`, but for the GOP that goes on.
void EventGate::trim(MonotonicTime begin)
{
    while (!held_.empty() && held_.front().end <= begin && (held_.size() > 1 || held_.front().interrupted))
    {
        dropFirst();
    }
}

void EventGate::dropFirst()
{
    Gop first = std::move(held_.front());
    held_.pop_front();
    Units audio;
    std::size_t dropped = 0;
    for (EncodedUnitPtr& unit : first.units)
    {
        // Audio that came before its frame.
        const bool stays = !held_.empty() && !first.interrupted && !isVideo(unit->format->codec) &&
                           unit->captureTime >= held_.front().begin;
        if (stays)
        {
            audio.push_back(std::move(unit));
        }
        else
        {
            dropped += sizeOf(*unit);
        }
    }
    if (!audio.empty())
    {
        Units& next = held_.front().units;
        next.insert(next.begin(), std::make_move_iterator(audio.begin()),
                    std::make_move_iterator(audio.end()));
    }
    bytes_ -= dropped;
    budget_.release(dropped);
}

/// Drops the audio that came before the first frame: no key frame goes with it.
void EventGate::dropAudio()
{
    while (!held_.empty() && !held_.back().interrupted)
    {
        const std::size_t dropped = sizeOf(held_.back().units);
        held_.pop_back();
        bytes_ -= dropped;
        budget_.release(dropped);
    }
}

/// Appends what is held, and holds nothing any more.
void EventGate::give(MonotonicTime now, Units& out)
{
    trim(now - rolls_->before);
    // The source fell silent without an end.
    if (!held_.empty() && held_.back().end <= now - rolls_->before - maxDelay)
    {
        held_.back().interrupted = true;
        trim(now - rolls_->before);
    }
    for (Gop& gop : held_)
    {
        out.insert(out.end(), std::make_move_iterator(gop.units.begin()),
                   std::make_move_iterator(gop.units.end()));
        if (gop.interrupted)
        {
            out.push_back(nullptr);
        }
    }
    clear();
}

void EventGate::interruptHeld()
{
    last_.reset();
    if (!held_.empty())
    {
        held_.back().interrupted = true;
    }
}

}  // namespace refhost
