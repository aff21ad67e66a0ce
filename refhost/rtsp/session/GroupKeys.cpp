#include "refhost/rtsp/session/GroupKeys.h"

#include <algorithm>
#include <chrono>

namespace refhost
{
namespace
{

constexpr std::uint32_t minAhead = 64;
constexpr std::uint32_t maxAhead = 0x4000;

GroupKeys::Track newTrack(SrtpSuite suite, MonotonicTime now)
{
    const SrtpKey key = SrtpKey::random(suite);
    // Members that report with the group's key are read; those with a key of their own are not.
    auto protection = std::make_shared<SrtpProtection>(key, key);
    return {key, protection, std::make_shared<ProtectedSender>(protection), now};
}

}  // namespace

MikeyMessage::CryptoSession GroupKeys::Track::joining(std::uint32_t ssrc, MonotonicTime now) const
{
    const auto sent = protection->sent(ssrc);
    if (!sent)
    {
        return {ssrc, 0};
    }
    // What is sent in a second, on average. It matters when the numbers are about to start over, so that the
    // unknown first one makes little difference.
    const auto seconds = std::max<std::int64_t>(1, (now - since) / std::chrono::seconds(1));
    const auto ahead =
        std::clamp<std::uint64_t>(*sent / static_cast<std::uint64_t>(seconds), minAhead, maxAhead);
    return {ssrc, static_cast<std::uint32_t>((*sent + ahead) >> 16U)};
}

GroupKeys::Track GroupKeys::hand(Stream stream, int track, std::string_view user, SrtpSuite suite,
                                 MonotonicTime now)
{
    const MutexLock guard(mutex_);
    Group& group = groups_[stream];
    if (group.users.find(user) == group.users.end())
    {
        group.users.emplace(user);
    }
    const auto found = group.tracks.find(track);
    return found != group.tracks.end() ? found->second
                                       : group.tracks.emplace(track, newTrack(suite, now)).first->second;
}

bool GroupKeys::isCurrent(Stream stream, int track, const SrtpKey& key) const
{
    const MutexLock guard(mutex_);
    const auto group = groups_.find(stream);
    if (group == groups_.end())
    {
        return false;
    }
    const auto found = group->second.tracks.find(track);
    return found != group->second.tracks.end() && found->second.key == key;
}

std::set<GroupKeys::Stream> GroupKeys::drop(
    const std::function<bool(Stream stream, const std::set<std::string, std::less<>>& users)>& gone)
{
    std::set<Stream> dropped;
    const MutexLock guard(mutex_);
    for (auto group = groups_.begin(); group != groups_.end();)
    {
        if (!gone(group->first, group->second.users))
        {
            ++group;
            continue;
        }
        dropped.insert(group->first);
        group = groups_.erase(group);
    }
    return dropped;
}

std::size_t GroupKeys::size() const
{
    const MutexLock guard(mutex_);
    return groups_.size();
}

}  // namespace refhost
