#include "refhost/rtp/multicast/MulticastServer.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "refhost/base/Log.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/StreamName.h"
#include "refhost/rtp/multicast/MulticastChannel.h"
#include "refhost/rtp/multicast/MulticastTransport.h"

namespace refhost
{
namespace
{

constexpr int readableAtOnce = 16;

bool isWildcard(const std::string& address)
{
    return address.empty() || address == "0.0.0.0" || address == "::";
}

/// \returns false with `error` set
bool findInterface(const MulticastServer::Options& options, MulticastInterface& out, std::string& error)
{
    if (options.interface.empty())
    {
        const auto listening =
            isWildcard(options.listen) ? std::nullopt : MulticastInterface::find(options.listen);
        out = listening.value_or(MulticastInterface());
        return true;
    }
    const auto found = MulticastInterface::find(options.interface);
    if (!found)
    {
        error = "there is no network interface \"" + options.interface + "\" for multicast";
        return false;
    }
    out = *found;
    return true;
}

}  // namespace

struct MulticastServer::Impl
{
    struct Entry
    {
        MulticastPool::Stream stream;
        int track;
        std::uint64_t id;
        std::weak_ptr<MulticastChannel> channel;
    };

    Impl(const Options& options, const MulticastSocketSettings& socketSettings, Descriptor epollHandle)
        : pool(options.pool),
          settings(socketSettings),
          epoll(std::move(epollHandle)),
          configuredNameOf(options.nameOf)
    {
    }

    std::string nameOf(MulticastPool::Stream stream) const
    {
        return configuredNameOf ? configuredNameOf(stream) : StreamName::of(stream.first, stream.second);
    }

    /// The track's channel, opened if needed. \returns null with errno set
    std::shared_ptr<MulticastChannel> channelOf(MulticastPool::Stream stream, int track,
                                                MulticastPool::Lease lease) OV_REQUIRES(mutex)
    {
        entries.erase(std::remove_if(entries.begin(), entries.end(),
                                     [](const Entry& entry) { return entry.channel.expired(); }),
                      entries.end());
        for (const Entry& entry : entries)
        {
            auto channel = entry.stream == stream && entry.track == track ? entry.channel.lock() : nullptr;
            if (channel)
            {
                return channel;
            }
        }
        auto channel = MulticastChannel::open(std::move(lease), track, settings);
        if (channel)
        {
            entries.push_back({stream, track, ++lastId, channel});
            watch(*channel, lastId);
        }
        return channel;
    }

    void watch(const MulticastChannel& channel, std::uint64_t id) const
    {
        if (channel.descriptor() < 0)
        {
            return;
        }
        // Closing the descriptor ends the watch.
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = id;
        if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, channel.descriptor(), &event) != 0)
        {
            Log::warning("multicast: reports of members are not read: {}", std::strerror(errno));
        }
    }

    std::shared_ptr<MulticastChannel> find(std::uint64_t id)
    {
        const MutexLock guard(mutex);
        const auto found =
            std::find_if(entries.begin(), entries.end(), [id](const Entry& entry) { return entry.id == id; });
        return found == entries.end() ? nullptr : found->channel.lock();
    }

    MulticastPool pool;
    const MulticastSocketSettings settings;
    const Descriptor epoll;
    const std::function<std::string(MulticastPool::Stream)> configuredNameOf;
    Mutex mutex;
    std::vector<Entry> entries OV_GUARDED_BY(mutex);  // one per track being sent, and a few expired ones
    std::uint64_t lastId OV_GUARDED_BY(mutex) = 0;
};

MulticastServer::MulticastServer() = default;
MulticastServer::~MulticastServer() = default;

std::shared_ptr<MulticastServer> MulticastServer::open(const Options& options, std::string& error)
{
    MulticastSocketSettings settings;
    settings.ttl = options.ttl;
    settings.segmentationOffload = options.segmentationOffload;
    if (!findInterface(options, settings.interface, error))
    {
        return nullptr;
    }
    const Descriptor probe(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    Descriptor epoll(epoll_create1(EPOLL_CLOEXEC));
    if (!probe || !epoll || !settings.applyTo(probe))
    {
        error = std::string("no socket for multicast: ") + std::strerror(errno);
        return nullptr;
    }
    std::shared_ptr<MulticastServer> server(new MulticastServer);
    server->impl_ = std::make_shared<Impl>(options, settings, std::move(epoll));
    return server;
}

bool MulticastServer::describe(MulticastPool::Stream stream, MulticastDestination& out)
{
    const auto group = impl_->pool.preview(stream);
    if (!group)
    {
        return false;
    }
    out = {*group, impl_->settings.ttl, {}};
    return true;
}

bool MulticastServer::makeTransport(MulticastPool::Stream stream, int track,
                                    std::optional<SafePointer<RtpTransport>>& out,
                                    MulticastDestination& destination,
                                    const std::shared_ptr<ProtectedSender>& protection)
{
    auto lease = impl_->pool.take(stream);
    if (!lease || track < 0 || track >= MulticastGroup::tracks)
    {
        Log::warning("multicast: no group is free for {} track {}", impl_->nameOf(stream), track);
        return false;
    }
    const MutexLock guard(impl_->mutex);
    auto channel = impl_->channelOf(stream, track, lease);
    if (!channel)
    {
        Log::error("multicast: no route to {}: {}; the key \"interface\" of [multicast] names one",
                   lease->addressText(), std::strerror(errno));
        return false;
    }
    destination = {*lease, impl_->settings.ttl, channel->source()};
    const SafePointer<MulticastTransport> transport(new MulticastTransport(std::move(channel)));
    if (protection != nullptr)
    {
        transport->protect(protection);
    }
    out.emplace(transport);
    return true;
}

int MulticastServer::descriptor() const
{
    return impl_->epoll.get();
}

void MulticastServer::onReadable()
{
    std::array<epoll_event, readableAtOnce> events{};
    const int count = epoll_wait(impl_->epoll.get(), events.data(), readableAtOnce, 0);
    for (int i = 0; i < count; ++i)
    {
        if (const auto channel = impl_->find(events[static_cast<std::size_t>(i)].data.u64))
        {
            channel->onReadable();
        }
    }
}

std::size_t MulticastServer::groupsTaken() const
{
    return impl_->pool.taken();
}

}  // namespace refhost
