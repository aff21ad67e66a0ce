#include "refhost/fragments/FragmentStream.h"

#include <algorithm>
#include <utility>

#include "refhost/fragments/FragmentWriter.h"

namespace refhost
{
namespace
{

/// The timeline begins in front of the first unit, so that what comes out of order has a time on it, too.
constexpr Duration lead = std::chrono::seconds(10);
constexpr Duration usualStep = std::chrono::milliseconds(40);
constexpr Duration maxStep = std::chrono::seconds(1);

}  // namespace

FragmentStream::FragmentStream(const HostClock& clock) : clock_(clock) {}

void FragmentStream::expect(Expected expected)
{
    const MutexLock lock(mutex_);
    expected_ = expected;
}

void FragmentStream::onEncodedUnit(const EncodedUnitPtr& unit)
{
    bool forAll = false;
    if (!append(unit, forAll))
    {
        return;
    }
    const MutexLock lock(wakeMutex_);
    for (const auto& [number, subscriber] : subscribers_)
    {
        if (forAll || subscriber.audio)
        {
            subscriber.wake();
        }
    }
}

/// \param[out] forAll  also for viewers that want no audio
/// \returns whether viewers get it
bool FragmentStream::append(const EncodedUnitPtr& unit, bool& forAll)
{
    const MutexLock lock(mutex_);
    if (!accept(*unit))
    {
        return false;
    }
    const bool video = isVideo(unit->format->codec);
    forAll = video || video_.format == nullptr;
    Track& track = video ? video_ : audio_;
    const Duration duration = stepOf(track, *unit);
    if (isStart(*unit))
    {
        previous_ = start_;
        start_ = head();
    }
    bytes_ += unit->bytes.size();
    units_.push_back({unit, duration, track.generation, nullptr});
    trim();
    return true;
}

void FragmentStream::onDiscontinuity()
{
    const MutexLock lock(mutex_);
    forget();
    video_.lastDecode.reset();
    audio_.lastDecode.reset();
}

/// Whether viewers get a unit. Notes its format.
bool FragmentStream::accept(const EncodedUnit& unit)
{
    if (!FragmentWriter::canHold(*unit.format))
    {
        return false;
    }
    const bool video = isVideo(unit.format->codec);
    Track& track = video ? video_ : audio_;
    if (track.format == nullptr || !(*track.format == *unit.format))
    {
        if (video && !unit.keyFrame)
        {
            return false;
        }
        if (video && track.format != nullptr)
        {
            forget();
        }
        setFormat(track, unit.format);
    }
    if (!origin_)
    {
        origin_ = unit.decodeTime - lead;
    }
    return unit.decodeTime >= *origin_;
}

void FragmentStream::setFormat(Track& track, const std::shared_ptr<const MediaFormat>& format)
{
    track.format = format;
    track.generation = ++formats_;
    track.lastDecode.reset();
}

void FragmentStream::announceAudio(const std::shared_ptr<const MediaFormat>& format)
{
    const MutexLock lock(mutex_);
    if (audio_.format == nullptr || !(*audio_.format == *format))
    {
        setFormat(audio_, format);
    }
}

/// Its own duration where it says one, otherwise the distance of the two units before it.
Duration FragmentStream::stepOf(Track& track, const EncodedUnit& unit)
{
    if (track.lastDecode)
    {
        const Duration step = unit.decodeTime - *track.lastDecode;
        if (step > Duration::zero() && step <= maxStep)
        {
            track.step = step;
        }
    }
    track.lastDecode = unit.decodeTime;
    if (unit.duration > Duration::zero())
    {
        return std::min(unit.duration, maxStep);
    }
    return track.step > Duration::zero() ? track.step : usualStep;
}

bool FragmentStream::isStart(const EncodedUnit& unit) const
{
    return video_.format == nullptr ? !expected_.video : isVideo(unit.format->codec) && unit.keyFrame;
}

/// Where a unit that is kept stands among those.
std::size_t FragmentStream::indexOf(std::uint64_t number) const
{
    return static_cast<std::size_t>(number - base_);
}

std::uint64_t FragmentStream::head() const
{
    return base_ + units_.size();
}

/// Keeps the present GOP and the one before.
void FragmentStream::trim()
{
    const std::uint64_t keepFrom = previous_ != 0 ? previous_ : start_ != 0 ? start_ : head();
    while (!units_.empty() && (base_ < keepFrom || bytes_ > maxKept || units_.size() > maxUnits))
    {
        bytes_ -= units_.front().unit->bytes.size();
        units_.pop_front();
        ++base_;
    }
    if (previous_ != 0 && previous_ < base_)
    {
        previous_ = 0;
    }
    if (start_ != 0 && start_ < base_)
    {
        start_ = 0;
    }
}

void FragmentStream::forget()
{
    base_ = head();
    units_.clear();
    bytes_ = 0;
    start_ = 0;
    previous_ = 0;
}

/// Whether the tracks of the stream are known well enough for an init segment.
bool FragmentStream::described() const
{
    if (video_.format == nullptr && audio_.format == nullptr)
    {
        return false;
    }
    if (audio_.format != nullptr || !expected_.audio)
    {
        return true;
    }
    return start_ != 0 && clock_.now() - units_[indexOf(start_)].unit->captureTime > maxAudioWait;
}

FragmentStream::Next FragmentStream::read(Cursor& cursor)
{
    const MutexLock lock(mutex_);
    const bool audio = cursor.wantsAudio || video_.format == nullptr;
    const std::uint64_t format = audio ? formats_ : video_.generation;
    if (cursor.next < base_ || cursor.format != format)
    {
        // It begins, or it fell behind: the newest key frame is next.
        if (start_ == 0 || (audio && !described()))
        {
            return {};
        }
        cursor.next = start_;
    }
    if (cursor.format != format)
    {
        cursor.format = format;
        Next next;
        next.description = Description{video_.format, audio ? audio_.format : nullptr};
        return next;
    }
    while (cursor.next < head())
    {
        const std::uint64_t number = cursor.next++;
        Kept& kept = units_[indexOf(number)];
        const bool video = isVideo(kept.unit->format->codec);
        if ((video || audio) && kept.generation == (video ? video_ : audio_).generation)
        {
            return {std::nullopt, fragmentOf(number, kept), video && kept.unit->keyFrame,
                    video,        kept.unit->captureTime,   kept.unit->decodeTime - *origin_,
                    kept.duration};
        }
    }
    return {};
}

const FragmentStream::Bytes& FragmentStream::fragmentOf(std::uint64_t number, Kept& kept)
{
    if (kept.fragment == nullptr)
    {
        const WallTime captured = clock_.wall().mapping().at(kept.unit->captureTime);
        const FragmentWriter::Place place{static_cast<std::uint32_t>(number),
                                          kept.unit->decodeTime - *origin_, kept.duration, captured};
        kept.fragment =
            std::make_shared<const std::vector<std::uint8_t>>(FragmentWriter::fragment(*kept.unit, place));
    }
    return kept.fragment;
}

std::uint64_t FragmentStream::subscribe(std::function<void()> wake, bool audio)
{
    const MutexLock lock(wakeMutex_);
    subscribers_.emplace(++subscriptions_, Subscriber{std::move(wake), audio});
    return subscriptions_;
}

void FragmentStream::unsubscribe(std::uint64_t subscription)
{
    const MutexLock lock(wakeMutex_);
    subscribers_.erase(subscription);
}

std::size_t FragmentStream::subscribers() const
{
    const MutexLock lock(wakeMutex_);
    return subscribers_.size();
}

}  // namespace refhost
