#include "refhost/capture/CameraCondition.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

CameraState stateAfter(SourceFailure::Cause cause, CameraState before)
{
    switch (cause)
    {
        case SourceFailure::Cause::unreachable:
            return CameraState::unreachable;
        case SourceFailure::Cause::refused:
            return CameraState::refused;
        case SourceFailure::Cause::silent:
            return CameraState::frozen;
        case SourceFailure::Cause::other:
            break;
    }
    // What a frozen camera's connection does next says no more than that it is frozen.
    return before == CameraState::frozen ? before : CameraState::failed;
}

std::string lengthText(Duration length)
{
    constexpr std::int64_t minute = 60;
    const std::int64_t seconds = std::chrono::round<std::chrono::seconds>(length).count();
    if (seconds < 2 * minute)
    {
        return fmt::format("{} s", seconds);
    }
    const std::int64_t minutes = seconds / minute;
    return minutes < 2 * minute ? fmt::format("{} min", minutes)
                                : fmt::format("{} h {} min", minutes / minute, minutes % minute);
}

}  // namespace

CameraCondition::CameraCondition(CameraStates& states, const CameraStates::Key& key, std::string title)
    : title_(title), row_(states, key, std::move(title)), since_(HostClock::system().now())
{
    status_.since = HostClock::system().wallNow();
}

void CameraCondition::rename(const std::string& title)
{
    title_ = title;
    row_.rename(title);
    row_.set(status_);
}

void CameraCondition::onStart()
{
    ++status_.starts;
    if (state_.is(CameraState::idle))
    {
        Log::info("{}: starting", title_);
        enter(CameraState::starting);
        return;
    }
    Log::debug("{}: starting again", title_);
    row_.set(status_);
}

void CameraCondition::onOtherMeans(const SourceFailure& why)
{
    if (isNewCause(why.text))
    {
        Log::info("{}: {}", title_, Log::safe(why.text));
    }
}

void CameraCondition::onFrames()
{
    if (state_.is(CameraState::running))
    {
        return;
    }
    Log::info("{}: running{}", title_, pastText());
    enter(CameraState::running);
}

void CameraCondition::onSilence(Duration length)
{
    if (state_.is(CameraState::frozen))
    {
        return;
    }
    const std::string text = fmt::format("no frames for {}", lengthText(length));
    Log::warning("{}: frozen: {}{}", title_, text, pastText());
    status_.lastError = text;
    status_.lastErrorAt = HostClock::system().wallNow();
    enter(CameraState::frozen);
}

void CameraCondition::onFailure(const SourceFailure& why)
{
    const std::string text = Log::safe(why.text);
    const CameraState next = stateAfter(why.cause, state_.state());
    ++status_.failures;
    if (why.untried && isFailure(state_.state()))
    {
        ++status_.failuresInState;
        row_.set(status_);
        return;
    }
    status_.lastError = text;
    status_.lastErrorAt = HostClock::system().wallNow();
    if (next == state_.state())
    {
        ++status_.failuresInState;
        if (isNewCause(text))
        {
            Log::warning("{}: still {}: {}", title_, nameOf(next), text);
        }
        row_.set(status_);
        return;
    }
    Log::warning("{}: {}: {}{}", title_, nameOf(next), text, pastText());
    enter(next);
    ++status_.failuresInState;
    causes_.push_back(text);
    row_.set(status_);
}

void CameraCondition::onUnneeded()
{
    if (!isFailure(state_.state()))
    {
        enter(CameraState::idle);
    }
}

void CameraCondition::enter(CameraState next)
{
    if (next == state_.state() || !state_.enter(next))
    {
        return;
    }
    causes_.clear();
    since_ = HostClock::system().now();
    status_.state = next;
    status_.since = HostClock::system().wallNow();
    status_.failuresInState = 0;
    row_.set(status_);
}

bool CameraCondition::isNewCause(const std::string& text)
{
    if (causes_.size() >= maxCauses || std::find(causes_.begin(), causes_.end(), text) != causes_.end())
    {
        return false;
    }
    causes_.push_back(text);
    return true;
}

/// What the state that ends now was, where the log says that it started.
std::string CameraCondition::pastText() const
{
    if (!isFailure(state_.state()) && !state_.is(CameraState::frozen))
    {
        return {};
    }
    const std::uint64_t failed = status_.failuresInState;
    return fmt::format("; it was {} for {}{}", nameOf(state_.state()),
                       lengthText(HostClock::system().now() - since_),
                       failed == 0   ? std::string()
                       : failed == 1 ? std::string(", 1 try failed")
                                     : fmt::format(", {} tries failed", failed));
}

}  // namespace refhost
