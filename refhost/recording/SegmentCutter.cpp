#include "refhost/recording/SegmentCutter.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "refhost/media/Codec.h"

namespace refhost
{
namespace
{

// Frames that are shown in another order than they come in go back by some frames' time at most.
constexpr std::int64_t maxReorderingNs = 1000000000;

bool same(const std::shared_ptr<const MediaFormat>& left, const std::shared_ptr<const MediaFormat>& right)
{
    return left == right || (left && right && *left == *right);
}

}  // namespace

SegmentCutter::SegmentCutter(std::int64_t segmentNs, std::function<Expected()> expected, SegmentSink& sink)
    : segmentNs_(segmentNs), expected_(std::move(expected)), sink_(sink)
{
}

void SegmentCutter::take(const EncodedUnitPtr& unit)
{
    const bool reference = isReference(*unit);
    if (!reference && isAhead(*unit))
    {
        return keepAhead(unit);
    }
    if (reference && jumps(*unit))
    {
        interrupt();
    }
    if (reference)
    {
        // First what comes before this frame, which may begin a segment.
        releaseAhead(unit->captureTimeNs - 1);
        reorders_ = reorders_ || (lastNs_ && unit->captureTimeNs < *lastNs_);
        lastStepNs_ = lastNs_ ? std::max<std::int64_t>(unit->captureTimeNs - *lastNs_, 0) : 0;
        lastNs_ = unit->captureTimeNs;
    }
    place(unit, reference);
    if (reference)
    {
        releaseAhead(unit->captureTimeNs);
    }
}

void SegmentCutter::place(const EncodedUnitPtr& unit, bool reference)
{
    (isVideo(unit->format->codec) ? video_ : audio_) = unit->format;
    if (reference && unit->keyFrame && !pendingNs_ && (!open_ || isCutDue(*unit)))
    {
        pendingNs_ = unit->captureTimeNs;
        audioCameThrough_ = false;
        // What leads the very first key frame is of no use.
        leadersCame_ = !open_ || !reorders_;
    }
    if (pendingNs_ && (reference || unit->captureTimeNs >= *pendingNs_))
    {
        hold(unit);
    }
    else if (open_)
    {
        write(unit);
    }
}

bool SegmentCutter::isAhead(const EncodedUnit& unit) const
{
    return !lastNs_ || unit.captureTimeNs > *lastNs_;
}

void SegmentCutter::keepAhead(const EncodedUnitPtr& unit)
{
    ahead_.push_back(unit);
    aheadBytes_ += unit->bytes.size();
    // Frames may stay away: the audio goes on.
    releaseAhead(unit->captureTimeNs - maxHoldNs);
    while (ahead_.size() > maxHeld || aheadBytes_ > maxHeldBytes)
    {
        releaseAhead(ahead_.front()->captureTimeNs);
    }
}

void SegmentCutter::releaseAhead(std::int64_t untilNs)
{
    while (!ahead_.empty() && ahead_.front()->captureTimeNs <= untilNs)
    {
        const EncodedUnitPtr unit = std::move(ahead_.front());
        ahead_.pop_front();
        aheadBytes_ -= unit->bytes.size();
        place(unit, false);
    }
}

void SegmentCutter::interrupt()
{
    if (pendingNs_)
    {
        cut();
    }
    releaseAhead(std::numeric_limits<std::int64_t>::max());
    if (open_)
    {
        open_ = false;
        sink_.endSegment(endNs_ - beginNs_);
    }
    video_.reset();
    audio_.reset();
    reorders_ = false;
    lastNs_.reset();
}

bool SegmentCutter::isReference(const EncodedUnit& unit)
{
    return isVideo(unit.format->codec) || (!video_ && !expected_().video);
}

bool SegmentCutter::jumps(const EncodedUnit& unit) const
{
    return lastNs_ &&
           (unit.captureTimeNs > *lastNs_ + maxPauseNs || unit.captureTimeNs < *lastNs_ - maxReorderingNs);
}

bool SegmentCutter::isCutDue(const EncodedUnit& unit) const
{
    const SegmentSink::Tracks known = knownTracks();
    return cutsSoon_ || unit.captureTimeNs - beginNs_ + toleranceNs >= segmentNs_ ||
           !std::equal(known.begin(), known.end(), tracks_.begin(), tracks_.end(), same);
}

bool SegmentCutter::isHoldOver(const EncodedUnit& unit)
{
    const bool longEnough = unit.captureTimeNs >= *pendingNs_ + maxHoldNs || held_.size() >= maxHeld ||
                            heldBytes_ >= maxHeldBytes;
    const bool audioOnly = !video_;
    const bool audioCame = audioOnly || audioCameThrough_ || (!audio_ && !expected_().audio);
    return longEnough || (audioCame && leadersCame_);
}

void SegmentCutter::hold(const EncodedUnitPtr& unit)
{
    audioCameThrough_ = audioCameThrough_ || !isVideo(unit->format->codec);
    leadersCame_ = leadersCame_ || (isVideo(unit->format->codec) && unit->captureTimeNs > *pendingNs_);
    held_.push_back(unit);
    heldBytes_ += unit->bytes.size();
    if (isHoldOver(*unit))
    {
        cut();
    }
}

void SegmentCutter::write(const EncodedUnitPtr& unit)
{
    const auto track = std::find_if(tracks_.begin(), tracks_.end(),
                                    [&](const Format& format) { return same(format, unit->format); });
    // Not what the segment was started with: the next key frame starts one for it.
    if (track == tracks_.end() || unit->captureTimeNs < beginNs_)
    {
        return;
    }
    if (track == tracks_.begin())
    {
        const std::int64_t length = unit->durationNs > 0 ? unit->durationNs : lastStepNs_;
        endNs_ = std::max(endNs_, unit->captureTimeNs + length);
    }
    sink_.writeUnit(static_cast<std::size_t>(track - tracks_.begin()), unit);
}

void SegmentCutter::cut()
{
    if (open_)
    {
        for (const EncodedUnitPtr& unit : held_)
        {
            const bool leads = isVideo(unit->format->codec) && unit->captureTimeNs > beginNs_;
            pendingNs_ = leads ? std::min(*pendingNs_, unit->captureTimeNs) : *pendingNs_;
        }
        sink_.endSegment(*pendingNs_ - beginNs_);
    }
    open_ = true;
    cutsSoon_ = false;
    beginNs_ = *pendingNs_;
    endNs_ = beginNs_;
    pendingNs_.reset();
    tracks_ = knownTracks();
    sink_.startSegment(beginNs_, tracks_);
    const std::vector<EncodedUnitPtr> units = std::exchange(held_, {});
    heldBytes_ = 0;
    for (const EncodedUnitPtr& unit : units)
    {
        write(unit);
    }
}

SegmentSink::Tracks SegmentCutter::knownTracks() const
{
    SegmentSink::Tracks tracks;
    for (const Format& format : {video_, audio_})
    {
        if (format)
        {
            tracks.push_back(format);
        }
    }
    return tracks;
}

}  // namespace refhost
