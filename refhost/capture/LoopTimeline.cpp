#include "refhost/capture/LoopTimeline.h"

#include <algorithm>
#include <chrono>

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

/// A piece without a told duration lasts this long where nothing better is known; also the shortest round, so
/// that a file of one frame does not spin.
constexpr Duration usualDuration = 40ms;

/// Beyond this distance a piece's own time is believed more than the even pace of those before it.
constexpr Duration believableLead = 1s;

}  // namespace

std::size_t LoopTimeline::addTrack()
{
    tracks_.emplace_back();
    return tracks_.size() - 1;
}

std::optional<LoopTimeline::Placed> LoopTimeline::place(std::size_t number, const Piece& piece, Duration now)
{
    Track& track = tracks_[number];
    const Time own = piece.decoding ? piece.decoding : piece.presentation;
    if (!own && !track.due)
    {
        return std::nullopt;
    }
    Duration due = own ? *own : *track.due + track.step;
    // Frames that are told in another order than they are shown, with the time of showing alone, must not
    // leave in bursts.
    if (!piece.decoding && track.due && track.step > Duration::zero() &&
        std::chrono::abs(*track.due + track.step - due) < believableLead)
    {
        due = *track.due + track.step;
    }
    const Duration shown = piece.presentation ? *piece.presentation : due;
    if (!base_)
    {
        base_ = now - due;
    }
    const Duration sinceLast = track.last && shown > *track.last ? shown - *track.last : usualDuration;
    const Duration lasts = piece.duration ? *piece.duration : sinceLast;
    track.due = due;
    track.step = piece.duration ? *piece.duration : Duration::zero();
    track.end = track.last ? std::max(track.end, shown + lasts) : shown + lasts;
    track.start = track.start ? std::min(*track.start, shown) : shown;
    track.last = track.last ? std::max(*track.last, shown) : shown;

    Placed placed;
    const auto onTimeline = [this](Duration time) { return std::max(Duration::zero(), *base_ + time); };
    placed.presentation = piece.presentation || !piece.decoding ? Time(onTimeline(shown)) : std::nullopt;
    placed.decoding = piece.decoding ? Time(onTimeline(*piece.decoding)) : std::nullopt;
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
        *base_ += std::max(*end - *start, usualDuration);
    }
}

}  // namespace refhost
