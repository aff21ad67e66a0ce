#pragma once
// Tested by tests/refhost/net/tunnel/TunnelTable_test.cpp.

#include <atomic>
#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"
#include "refhost/net/tunnel/TunnelStream.h"

namespace refhost
{

/// Joins the two connections of each tunnel through HTTP, in whichever order they come.
///
/// Connections belong together when cookie, client's address, certificate, and whether they are encrypted are
/// equal: whoever guesses or overhears a cookie at another address, or has another certificate, gets a tunnel of
/// their own. A cookie names one tunnel at a time.
///
/// Bounds: tunnels as the connections of their GETs; POST connections that wait for their GET as `Limits` has
/// it.
///
/// Threads: any; one lock of its own. Outlives its tunnels or not.
class TunnelTable
{
public:
    struct Limits
    {
        std::size_t waiting = 64;           ///< POST connections that wait for their GET
        std::size_t waitingPerAddress = 8;  ///< as SocketAddress::networkOf() counts addresses
        Duration wait = std::chrono::seconds(10);
    };

    /// What the two connections have in common.
    struct Key
    {
        Key(const ByteStream& stream, std::string name);
        bool operator<(const Key& other) const;

        SocketAddress::Key address;
        bool encrypted;
        std::string certificate;  // its verified name
        std::string cookie;
    };

    explicit TunnelTable(const Limits& limits);

    /// Opens the tunnel of a GET. POST connections that wait for it are added.
    /// \param get  detached
    /// \returns null when the cookie names a tunnel already; `get` is unused then
    std::shared_ptr<TunnelStream> open(const Key& key, std::shared_ptr<ByteStream> get,
                                       TunnelStream::Joined joined);

    /// Adds a POST connection to its tunnel, or lets it wait for that.
    /// \returns false, with `post` as it was, when too many wait
    bool add(const Key& key, TunnelStream::Post& post, MonotonicTime now);

    /// Ends a POST connection that waits for its GET; does nothing for another.
    void drop(const ByteStream& stream);
    /// Ends the POST connections that have waited too long.
    void endExpired(MonotonicTime now);
    /// From now on a POST connection may wait so long.
    void setWait(Duration wait);
    /// Ends all that wait.
    void clear();

    std::size_t waiting() const;

private:
    class Registration;
    struct Waiting
    {
        Key key;
        TunnelStream::Post post;
        MonotonicTime since;
    };
    struct State
    {
        Mutex mutex;
        std::map<Key, std::weak_ptr<TunnelStream>> tunnels OV_GUARDED_BY(mutex);
        std::list<Waiting> waiting OV_GUARDED_BY(mutex);  // oldest first
    };

    template <class Condition>
    void endWaiting(const Condition& ends);

    const Limits limits_;
    std::atomic<Duration> wait_;
    const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace refhost
