#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/rtp/ProtectedSender.h"
#include "refhost/rtp/multicast/MulticastPool.h"
#include "refhost/rtp/srtp/SrtpProtection.h"

namespace refhost
{

/// The SRTP keys of multicast groups: one for each track of a stream, the same for every member.
///
/// Remembers which users were handed the keys of a stream. When one of them may not watch any more, the keys
/// are dropped, and the next request for them makes others. Bounded by the configured streams and users.
/// Threads: any.
class GroupKeys
{
public:
    using Stream = MulticastPool::Stream;

    /// A track's key, and what encrypts with it.
    struct Track
    {
        SrtpKey key;
        std::shared_ptr<SrtpProtection> protection;
        std::shared_ptr<ProtectedSender> sender;  ///< of `protection`, shared by all members' transports
        MonotonicTime since;                      ///< when the key was made

        /// The source, and the rollover counter for a member that receives its first packet within about a second.
        /// One that joins shortly before the sequence numbers start over gets the next counter: it waits for
        /// them, where it would wait for ever with the present one.
        MikeyMessage::CryptoSession joining(std::uint32_t ssrc, MonotonicTime now) const;
    };

    /// The keys of a track; made with the first call, and after drop().
    /// \param user   who is handed the key; empty: everybody
    /// \param suite  of a new key
    Track hand(Stream stream, int track, std::string_view user, SrtpSuite suite, MonotonicTime now);

    /// Whether `key` is the one that hand() would return.
    bool isCurrent(Stream stream, int track, const SrtpKey& key) const;

    /// Forgets the keys of the streams that `gone` names.
    /// \param gone  its second argument are the users who were handed the keys
    /// \returns the streams, whose members must leave: RTSP has no means to hand them other keys
    std::set<Stream> drop(
        const std::function<bool(Stream stream, const std::set<std::string, std::less<>>& users)>& gone);

    /// Streams with keys.
    std::size_t size() const;

private:
    struct Group
    {
        std::map<int, Track> tracks;
        std::set<std::string, std::less<>> users;
    };

    mutable Mutex mutex_;
    std::map<Stream, Group> groups_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
