#include "refhost/recording/SegmentCutter.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "refhost/media/Codec.h"

namespace refhost
{
namespace
{

/// Max step back of capture times that is reordering and not a jump.
constexpr Duration maxReordering = std::chrono::seconds(1);

bool same(const std::shared_ptr<const MediaFormat>& left, const std::shared_ptr<const MediaFormat>& right)
{
    return left == right || (left && right && *left == *right);
}

}  // namespace

SegmentCutter::SegmentCutter(Duration segmentLength, std::function<Expected()> expected, SegmentSink& sink)
    : segmentLength_(segmentLength), expected_(std::move(expected)), sink_(sink)
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
        // Earlier audio first: this frame may start a segment.
        releaseAhead(unit->captureTime - Duration(1));
        reorders_ = reorders_ || (last_ && unit->captureTime < *last_);
        lastStep_ = last_ ? std::max(unit->captureTime - *last_, Duration::zero()) : Duration::zero();
        last_ = unit->captureTime;
    }
    place(unit, reference);
    if (reference)
    {
        releaseAhead(unit->captureTime);
    }
}

void SegmentCutter::place(const EncodedUnitPtr& unit, bool reference)
{
    (isVideo(unit->format->codec) ? video_ : audio_) = unit->format;
    if (reference && unit->keyFrame && !pending_ && (!open_ || isCutDue(*unit)))
    {
        pending_ = unit->captureTime;
        audioCameThrough_ = false;
        // Leading frames of the first key frame cannot be decoded: they are not waited for.
        leadersCame_ = !open_ || !reorders_;
    }
    if (pending_ && (reference || unit->captureTime >= *pending_))
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
    return !last_ || unit.captureTime > *last_;
}

void SegmentCutter::keepAhead(const EncodedUnitPtr& unit)
{
    ahead_.push_back(unit);
    aheadBytes_ += unit->bytes.size();
    // Audio does not wait longer for video.
    releaseAhead(unit->captureTime - maxHold);
    while (ahead_.size() > maxHeld || aheadBytes_ > maxHeldBytes)
    {
        releaseAhead(ahead_.front()->captureTime);
    }
}

void SegmentCutter::releaseAhead(MonotonicTime until)
{
    while (!ahead_.empty() && ahead_.front()->captureTime <= until)
    {
        const EncodedUnitPtr unit = std::move(ahead_.front());
        ahead_.pop_front();
        aheadBytes_ -= unit->bytes.size();
        place(unit, false);
    }
}

void SegmentCutter::interrupt()
{
    if (pending_)
    {
        cut();
    }
    releaseAhead(MonotonicTime::max());
    if (open_)
    {
        open_ = false;
        sink_.endSegment(end_ - begin_);
    }
    video_.reset();
    audio_.reset();
    reorders_ = false;
    last_.reset();
}

bool SegmentCutter::isReference(const EncodedUnit& unit)
{
    return isVideo(unit.format->codec) || (!video_ && !expected_().video);
}

bool SegmentCutter::jumps(const EncodedUnit& unit) const
{
    return last_ && (unit.captureTime > *last_ + maxPause || unit.captureTime < *last_ - maxReordering);
}

bool SegmentCutter::isCutDue(const EncodedUnit& unit) const
{
    const SegmentSink::Tracks known = knownTracks();
    return cutsSoon_ || unit.captureTime - begin_ + tolerance >= segmentLength_ ||
           !std::equal(known.begin(), known.end(), tracks_.begin(), tracks_.end(), same);
}

bool SegmentCutter::isHoldOver(const EncodedUnit& unit)
{
    const bool longEnough =
        unit.captureTime >= *pending_ + maxHold || held_.size() >= maxHeld || heldBytes_ >= maxHeldBytes;
    const bool audioOnly = !video_;
    const bool audioCame = audioOnly || audioCameThrough_ || (!audio_ && !expected_().audio);
    return longEnough || (audioCame && leadersCame_);
}

void SegmentCutter::hold(const EncodedUnitPtr& unit)
{
    audioCameThrough_ = audioCameThrough_ || !isVideo(unit->format->codec);
    leadersCame_ = leadersCame_ || (isVideo(unit->format->codec) && unit->captureTime > *pending_);
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
    // A track that the segment was not started with: the next key frame starts a segment with it.
    if (track == tracks_.end() || unit->captureTime < begin_)
    {
        return;
    }
    if (track == tracks_.begin())
    {
        const Duration length = unit->duration > Duration::zero() ? unit->duration : lastStep_;
        end_ = std::max(end_, unit->captureTime + length);
    }
    sink_.writeUnit(static_cast<std::size_t>(track - tracks_.begin()), unit);
}

void SegmentCutter::cut()
{
    if (open_)
    {
        for (const EncodedUnitPtr& unit : held_)
        {
            const bool leads = isVideo(unit->format->codec) && unit->captureTime > begin_;
            pending_ = leads ? std::min(*pending_, unit->captureTime) : *pending_;
        }
        sink_.endSegment(*pending_ - begin_);
    }
    open_ = true;
    cutsSoon_ = false;
    begin_ = *pending_;
    end_ = begin_;
    pending_.reset();
    tracks_ = knownTracks();
    sink_.startSegment(begin_, tracks_);
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
