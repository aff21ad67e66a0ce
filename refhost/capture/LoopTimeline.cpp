#include "refhost/capture/LoopTimeline.h"

#include <algorithm>
#include <chrono>

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

/// Assumed duration of a unit when unknown; also the shortest iteration, so that a file of one frame does not
/// spin.
constexpr Duration defaultDuration = 40ms;

/// A unit whose own time differs by more from the even pace of its track is not paced evenly.
constexpr Duration maxDeviation = 1s;

}  // namespace

std::size_t LoopTimeline::addTrack()
{
    tracks_.emplace_back();
    return tracks_.size() - 1;
}

std::optional<LoopTimeline::Placed> LoopTimeline::place(std::size_t number, const Unit& unit, Duration now)
{
    Track& track = tracks_[number];
    const Time own = unit.decoding ? unit.decoding : unit.presentation;
    if (!own && !track.due)
    {
        return std::nullopt;
    }
    Duration due = own ? *own : *track.due + track.step;
    // Reordered frames that have presentation times only must not leave in bursts.
    if (!unit.decoding && track.due && track.step > Duration::zero() &&
        std::chrono::abs(*track.due + track.step - due) < maxDeviation)
    {
        due = *track.due + track.step;
    }
    const Duration presented = unit.presentation ? *unit.presentation : due;
    if (!base_)
    {
        base_ = now - due;
    }
    const Duration sinceLast =
        track.last && presented > *track.last ? presented - *track.last : defaultDuration;
    const Duration end = presented + unit.duration.value_or(sinceLast);
    track.due = due;
    track.step = unit.duration.value_or(Duration::zero());
    track.end = track.last ? std::max(track.end, end) : end;
    track.start = track.start ? std::min(*track.start, presented) : presented;
    track.last = track.last ? std::max(*track.last, presented) : presented;

    Placed placed;
    const auto onTimeline = [this](Duration time) { return std::max(Duration::zero(), *base_ + time); };
    placed.presentation = unit.presentation || !unit.decoding ? Time(onTimeline(presented)) : std::nullopt;
    placed.decoding = unit.decoding ? Time(onTimeline(*unit.decoding)) : std::nullopt;
    placed.due = onTimeline(due);
    return placed;
}

bool LoopTimeline::endTrack(std::size_t number)
{
    tracks_[number].ended = true;
    if (!std::all_of(tracks_.begin(), tracks_.end(), [](const Track& track) { return track.ended; }))
    {
        return false;
    }
    startIteration();
    return true;
}

void LoopTimeline::startIteration()
{
    Time start;
    Time end;
    for (Track& track : tracks_)
    {
        if (track.start)
        {
            start = start ? std::min(*start, *track.start) : *track.start;
            end = end ? std::max(*end, track.end) : track.end;
        }
        track = Track();
    }
    if (base_ && start)
    {
        *base_ += std::max(*end - *start, defaultDuration);
    }
}

}  // namespace refhost
