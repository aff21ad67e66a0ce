#include "refhost/ingest/CameraPauses.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "refhost/ingest/client/CameraUrl.h"

namespace refhost
{

void CameraPauses::noteEnd(const std::string& location, const RtspClientEnd& end, MonotonicTime now)
{
    const bool refused = end.kind == RtspClientEnd::Kind::unauthorized;
    const Duration asked = end.retryAfter.value_or(Duration::zero());
    const bool busy = end.kind == RtspClientEnd::Kind::busy && asked > Duration::zero();
    if (!refused && !busy)
    {
        return;
    }
    const std::string key = refused ? loginOf(location) : location;
    const MutexLock guard(mutex_);
    if (pauses_.size() >= maxCameras && pauses_.count(key) == 0)
    {
        return;
    }
    Pause& pause = pauses_[key];
    if (busy)
    {
        pause.length = std::min(asked, maxPause);
    }
    else if (now >= pause.until)
    {
        // Streams of one camera that are refused at the same time count once.
        pause.length = pause.length == Duration::zero() ? firstPause : std::min(2 * pause.length, maxPause);
    }
    else
    {
        return;
    }
    pause.until = now + pause.length;
    pause.why = end.text;
}

void CameraPauses::notePlaying(const std::string& location)
{
    const MutexLock guard(mutex_);
    pauses_.erase(loginOf(location));
    pauses_.erase(location);
}

std::string CameraPauses::refusal(const std::string& location, MonotonicTime now) const
{
    const MutexLock guard(mutex_);
    const Pause* pause = find(loginOf(location), now);
    pause = pause == nullptr ? find(location, now) : pause;
    if (pause == nullptr)
    {
        return {};
    }
    return fmt::format("{}; it is asked again in {} s", pause->why,
                       std::chrono::ceil<std::chrono::seconds>(pause->until - now).count());
}

const CameraPauses::Pause* CameraPauses::find(const std::string& key, MonotonicTime now) const
{
    const auto found = pauses_.find(key);
    return found == pauses_.end() || now >= found->second.until ? nullptr : &found->second;
}

/// Who logs in where, whatever the path.
std::string CameraPauses::loginOf(const std::string& location)
{
    const std::optional<CameraUrl> url = CameraUrl::parse(location);
    return url ? fmt::format("{}\n{}\n{}", url->authority(), url->user, url->password) : location;
}

}  // namespace refhost
