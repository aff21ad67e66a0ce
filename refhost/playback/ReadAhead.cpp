#include "refhost/playback/ReadAhead.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "refhost/threads/WorkPool.h"

namespace refhost
{
namespace
{

/// Max. units of a batch, so that other sessions get their turn.
constexpr int maxReads = 64;
/// Min. units to hold, whatever their duration: at high speed key frames are far apart.
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

bool ReadAhead::shouldRead(MonotonicTime now, double rate)
{
    if (state_.is(ReadState::idle) || atEnd() || (state_.is(ReadState::waiting) && now < later_))
    {
        return false;
    }
    const auto ahead = Duration(static_cast<std::int64_t>(static_cast<double>(queue_.span().count()) / rate));
    const bool few = queue_.size() < minUnits;
    if (queue_.bytes() >= maxBytes() || (!few && ahead >= settings_.readAhead))
    {
        state_.enter(ReadState::full);
    }
    else if (!state_.is(ReadState::full) || few || ahead < settings_.readAhead / 2)
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
    plan.span = Duration(static_cast<std::int64_t>(static_cast<double>(settings_.readAhead.count()) * rate));
    if (!queue_.empty())
    {
        plan.until = queue_.front().due + plan.span;
    }
    return plan;
}

ReadAhead::Batch ReadAhead::read(PlaybackSource& source, const Plan& plan)
{
    Batch batch;
    std::size_t bytes = 0;
    std::optional<WallTime> until = plan.until;
    bool enough = false;
    for (int i = 0; i < maxReads && bytes < plan.maxBytes && !enough; ++i)
    {
        PlaybackUnit unit;
        batch.result = source.read(unit);
        if (batch.result != PlaybackSource::Result::unit)
        {
            break;
        }
        until = until.value_or(unit.due + plan.span);
        bytes += unit.unit->bytes.size();
        batch.units.push_back(std::move(unit));
        enough = batch.units.size() >= plan.minUnits && batch.units.back().due >= *until;
    }
    return batch;
}

bool ReadAhead::add(Batch batch, MonotonicTime now)
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
        later_ = now + settings_.growthInterval;
        state_.enter(ReadState::waiting);
    }
    return atEnd() || !batch.units.empty();
}

MonotonicTime ReadAhead::retryTime(MonotonicTime now) const
{
    const bool waits = state_.is(ReadState::waiting) && later_ > now && queue_.size() < minUnits;
    return waits ? later_ : PooledWork::never;
}

}  // namespace refhost
