#include "refhost/net/tunnel/TunnelTable.h"

#include <algorithm>
#include <utility>

namespace refhost
{

TunnelTable::Key::Key(const ByteStream& stream, std::string name)
    : address(stream.peer().key()),
      encrypted(stream.encrypted()),
      certificate(stream.certificateName()),
      cookie(std::move(name))
{
}

bool TunnelTable::Key::operator<(const Key& other) const
{
    return std::tie(address, encrypted, certificate, cookie) <
           std::tie(other.address, other.encrypted, other.certificate, other.cookie);
}

/// Takes a tunnel out of the table at its end.
class TunnelTable::Registration
{
public:
    Registration(std::shared_ptr<State> state, Key key) : state_(std::move(state)), key_(std::move(key)) {}
    ~Registration()
    {
        const MutexLock guard(state_->mutex);
        state_->tunnels.erase(key_);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    const std::shared_ptr<State> state_;
    const Key key_;
};

TunnelTable::TunnelTable(const Limits& limits) : limits_(limits), wait_(limits.wait) {}

void TunnelTable::setWait(Duration wait)
{
    wait_ = wait;
}

std::shared_ptr<TunnelStream> TunnelTable::open(const Key& key, std::shared_ptr<ByteStream> get,
                                                TunnelStream::Joined joined)
{
    // Registered before the tunnel exists: taken out with it.
    std::shared_ptr<Registration> registration;
    {
        const MutexLock guard(state_->mutex);
        if (!state_->tunnels.try_emplace(key).second)
        {
            return nullptr;
        }
        registration = std::make_shared<Registration>(state_, key);
    }
    auto tunnel = std::make_shared<TunnelStream>(std::move(get), key.cookie, std::move(joined),
                                                 std::move(registration));
    std::list<Waiting> found;
    {
        const MutexLock guard(state_->mutex);
        state_->tunnels[key] = tunnel;
        for (auto each = state_->waiting.begin(); each != state_->waiting.end();)
        {
            const auto next = std::next(each);
            if (!(each->key < key) && !(key < each->key))
            {
                found.splice(found.end(), state_->waiting, each);
            }
            each = next;
        }
    }
    for (Waiting& each : found)
    {
        if (!tunnel->addPost(each.post))
        {
            each.post.stream->close();
        }
    }
    return tunnel;
}

bool TunnelTable::add(const Key& key, TunnelStream::Post& post, MonotonicTime now)
{
    std::shared_ptr<TunnelStream> tunnel;  // ends without the lock
    {
        const MutexLock guard(state_->mutex);
        const auto found = state_->tunnels.find(key);
        tunnel = found == state_->tunnels.end() ? nullptr : found->second.lock();
        if (tunnel == nullptr)
        {
            const SocketAddress::Key network = SocketAddress::networkOf(key.address);
            const auto own = static_cast<std::size_t>(std::count_if(
                state_->waiting.begin(), state_->waiting.end(),
                [&](const Waiting& each) { return SocketAddress::networkOf(each.key.address) == network; }));
            if (state_->waiting.size() >= limits_.waiting || own >= limits_.waitingPerAddress)
            {
                return false;
            }
            state_->waiting.push_back({key, std::move(post), now});
            return true;
        }
    }
    return tunnel->addPost(post);
}

template <class Condition>
void TunnelTable::endWaiting(const Condition& ends)
{
    std::list<Waiting> ended;  // without the lock: the holds may take others
    {
        const MutexLock guard(state_->mutex);
        for (auto each = state_->waiting.begin(); each != state_->waiting.end();)
        {
            const auto next = std::next(each);
            if (ends(*each))
            {
                ended.splice(ended.end(), state_->waiting, each);
            }
            each = next;
        }
    }
    for (const Waiting& each : ended)
    {
        each.post.stream->close();
    }
}

void TunnelTable::drop(const ByteStream& stream)
{
    endWaiting([&stream](const Waiting& each) { return each.post.stream.get() == &stream; });
}

void TunnelTable::endExpired(MonotonicTime now)
{
    endWaiting([this, now](const Waiting& each) { return now - each.since >= wait_.load(); });
}

void TunnelTable::clear()
{
    endWaiting([](const Waiting&) { return true; });
}

std::size_t TunnelTable::waiting() const
{
    const MutexLock guard(state_->mutex);
    return state_->waiting.size();
}

}  // namespace refhost
