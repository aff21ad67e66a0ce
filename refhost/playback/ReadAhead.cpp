#include "refhost/playback/ReadAhead.h"

#include <algorithm>
#include <utility>

#include "refhost/playback/PlaybackScheduler.h"

namespace refhost
{
namespace
{

/// What one go may read, so that other sessions get their turn.
constexpr int maxReads = 64;
/// Units to hold at least, however long they last: key frames of fast playing are far apart.
constexpr std::size_t minUnits = 8;

}  // namespace

ReadAhead::ReadAhead(const PlaybackSettings& settings)
    : settings_(settings), share_(*settings.readAheadBudget)
{
}

void ReadAhead::restart(PlaybackUnit first)
{
    queue_.clear();
    queue_.add(std::move(first));
    state_.enter(ReadState::filling);
}

std::size_t ReadAhead::maxBytes() const
{
    return std::min(settings_.readAheadBytes, share_.bytes());
}

bool ReadAhead::wantsToRead(std::int64_t nowMs, double rate)
{
    if (state_.is(ReadState::idle) || atEnd() || (state_.is(ReadState::waiting) && nowMs < laterMs_))
    {
        return false;
    }
    const auto aheadMs = static_cast<std::int64_t>(static_cast<double>(queue_.spanNs()) / 1e6 / rate);
    const bool few = queue_.size() < minUnits;
    if (queue_.bytes() >= maxBytes() || (!few && aheadMs >= settings_.readAheadMs))
    {
        state_.enter(ReadState::full);
    }
    else if (!state_.is(ReadState::full) || few || aheadMs < settings_.readAheadMs / 2)
    {
        state_.enter(ReadState::filling);
    }
    return state_.is(ReadState::filling);
}

ReadAhead::Plan ReadAhead::plan(double rate) const
{
    Plan plan{};
    plan.minUnits = minUnits - std::min(minUnits, queue_.size());
    const std::size_t allowed = maxBytes();
    plan.maxBytes = allowed - std::min(allowed, queue_.bytes());
    plan.spanNs = static_cast<std::int64_t>(static_cast<double>(settings_.readAheadMs) * 1e6 * rate);
    plan.untilNs = queue_.empty() ? 0 : queue_.front().dueNs + plan.spanNs;
    return plan;
}

ReadAhead::Batch ReadAhead::read(PlaybackSource& source, const Plan& plan)
{
    Batch batch;
    std::size_t bytes = 0;
    std::int64_t untilNs = plan.untilNs;
    bool enough = false;
    for (int i = 0; i < maxReads && bytes < plan.maxBytes && !enough; ++i)
    {
        PlaybackUnit unit;
        batch.result = source.read(unit);
        if (batch.result != PlaybackSource::Result::unit)
        {
            break;
        }
        untilNs = untilNs == 0 ? unit.dueNs + plan.spanNs : untilNs;
        bytes += unit.unit->bytes.size();
        batch.units.push_back(std::move(unit));
        enough = batch.units.size() >= plan.minUnits && batch.units.back().dueNs >= untilNs;
    }
    return batch;
}

bool ReadAhead::add(Batch batch, std::int64_t nowMs)
{
    for (PlaybackUnit& unit : batch.units)
    {
        queue_.add(std::move(unit));
    }
    if (batch.result == PlaybackSource::Result::end)
    {
        state_.enter(ReadState::atEnd);
    }
    else if (batch.result == PlaybackSource::Result::later)
    {
        laterMs_ = nowMs + settings_.growthMs;
        state_.enter(ReadState::waiting);
    }
    return atEnd() || !batch.units.empty();
}

std::int64_t ReadAhead::retryMs(std::int64_t nowMs) const
{
    const bool waits = state_.is(ReadState::waiting) && laterMs_ > nowMs && queue_.size() < minUnits;
    return waits ? laterMs_ : PlaybackWork::never;
}

}  // namespace refhost
