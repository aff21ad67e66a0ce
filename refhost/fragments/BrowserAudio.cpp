#include "refhost/fragments/BrowserAudio.h"

#include <utility>
#include <vector>

#include "refhost/base/Log.h"

namespace refhost
{

BrowserAudio::BrowserAudio(std::shared_ptr<FragmentStream> fragments, std::shared_ptr<WorkPool> pool)
    : fragments_(std::move(fragments)), pool_(std::move(pool))
{
}

void BrowserAudio::onEncodedUnit(const EncodedUnitPtr& unit)
{
    if (isVideo(unit->format->codec))
    {
        fragments_->onEncodedUnit(unit);
        return;
    }
    if (!isTranscoded(unit))
    {
        fragments_->onEncodedUnit(unit);
        return;
    }
    {
        const MutexLock lock(mutex_);
        if (listeners_ == 0)
        {
            return;
        }
        waiting_.push_back(unit);
        if (waiting_.size() > maxWaiting)
        {
            waiting_.pop_front();
        }
    }
    pool_->wake(shared_from_this());
}

/// Announces what comes out as soon as the track is seen.
bool BrowserAudio::isTranscoded(const EncodedUnitPtr& unit)
{
    const MutexLock lock(mutex_);
    if (seen_ != unit->format)
    {
        seen_ = unit->format;
        const auto made = OpusTranscoder::formatFor(*unit->format);
        transcodes_ = made != nullptr;
        if (transcodes_)
        {
            fragments_->announceAudio(made);
        }
    }
    return transcodes_;
}

void BrowserAudio::onDiscontinuity()
{
    {
        const MutexLock lock(mutex_);
        waiting_.clear();
    }
    fragments_->onDiscontinuity();
}

void BrowserAudio::addListener()
{
    const MutexLock lock(mutex_);
    ++listeners_;
}

void BrowserAudio::removeListener()
{
    {
        const MutexLock lock(mutex_);
        if (--listeners_ > 0 || !transcodes_)
        {
            return;
        }
        waiting_.clear();
    }
    // The encoder goes.
    pool_->wake(shared_from_this());
}

std::size_t BrowserAudio::waiting() const
{
    const MutexLock lock(mutex_);
    return waiting_.size();
}

MonotonicTime BrowserAudio::run(MonotonicTime /*now*/)
{
    std::deque<EncodedUnitPtr> units;
    {
        const MutexLock lock(mutex_);
        units.swap(waiting_);
        if (listeners_ == 0)
        {
            transcoder_.reset();
            return never;
        }
    }
    std::vector<EncodedUnitPtr> made;
    for (const EncodedUnitPtr& unit : units)
    {
        if (transcoder_ == nullptr || !(transcoder_->from() == *unit->format))
        {
            transcoder_ = OpusTranscoder::make(unit->format);
        }
        if (transcoder_ == nullptr)
        {
            Log::limited(Log::Level::error, "audio for browsers", "audio for browsers: no encoder for Opus");
            return never;
        }
        transcoder_->transcode(*unit, made);
    }
    for (const EncodedUnitPtr& unit : made)
    {
        fragments_->onEncodedUnit(unit);
    }
    return never;
}

}  // namespace refhost
