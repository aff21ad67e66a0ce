#include "refhost/capture/SourceAttempts.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

constexpr std::array<SourceAttempts::Milliseconds, SourceAttempts::maxRepeats> againPauses{
    SourceAttempts::Milliseconds(200), SourceAttempts::Milliseconds(600)};

/// A pause grows at random, by up to half: 256 steps of one in this many.
constexpr int maxJitter = 512;

}  // namespace

SourceAttempts::SourceAttempts(std::vector<Milliseconds> restartPauses)
    : restartPauses_(std::move(restartPauses))
{
}

void SourceAttempts::reset()
{
    startedAt_ = {};
    means_ = 0;
    switches_ = 0;
    repeats_ = 0;
    failures_ = 0;
}

void SourceAttempts::onStart(Clock::time_point now)
{
    startedAt_ = now;
}

void SourceAttempts::onDescribed()
{
    switches_ = 0;
    repeats_ = 0;
}

void SourceAttempts::giveUp()
{
    switches_ = maxSwitches;
    repeats_ = maxRepeats;
}

SourceAttempts::Next SourceAttempts::onFailure(bool otherMeans, Clock::time_point now)
{
    if (otherMeans)
    {
        ++means_;
        if (++switches_ <= maxSwitches)
        {
            return Next::otherMeans;
        }
    }
    else if (switches_ > 0 && repeats_ < maxRepeats)
    {
        ++repeats_;
        return Next::again;
    }
    switches_ = 0;
    repeats_ = 0;
    failures_ = now - startedAt_ >= goodRun ? 1 : failures_ + 1;
    return Next::failed;
}

SourceAttempts::Milliseconds SourceAttempts::againPause() const
{
    return againPauses[std::max<std::size_t>(repeats_, 1) - 1];
}

SourceAttempts::Milliseconds SourceAttempts::restartPause() const
{
    const std::size_t index = std::min(std::max<std::size_t>(failures_, 1), restartPauses_.size()) - 1;
    std::uint8_t jitter = 0;
    fillRandom(&jitter, sizeof jitter);
    return restartPauses_[index] * (maxJitter + jitter) / maxJitter;
}

}  // namespace refhost
