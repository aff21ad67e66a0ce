#include "refhost/rtsp/session/InterleavedChannels.h"

#include <algorithm>
#include <utility>

namespace refhost
{
namespace
{

constexpr int channelCount = 256;

}  // namespace

InterleavedChannels::Lease::Lease(std::shared_ptr<InterleavedChannels> channels, int rtpChannel,
                                  int rtcpChannel)
    : channels_(std::move(channels)), rtpChannel_(rtpChannel), rtcpChannel_(rtcpChannel)
{
}

InterleavedChannels::Lease::~Lease()
{
    channels_->giveBack(rtpChannel_);
}

int InterleavedChannels::Lease::rtpChannel() const
{
    return rtpChannel_;
}

int InterleavedChannels::Lease::rtcpChannel() const
{
    return rtcpChannel_;
}

void InterleavedChannels::Lease::deliverTo(const SafePointer<InterleavedTransport>& transport)
{
    channels_->deliver(rtpChannel_, transport);
}

std::unique_ptr<InterleavedChannels::Lease> InterleavedChannels::lease(int rtpChannel, int rtcpChannel)
{
    const SmallMutexLock guard(mutex_);
    if (rtpChannel < 0 || !isFree(rtpChannel) || !isFree(rtcpChannel))
    {
        rtpChannel = 0;
        while (rtpChannel < channelCount && !(isFree(rtpChannel) && isFree(rtpChannel + 1)))
        {
            rtpChannel += 2;
        }
        if (rtpChannel >= channelCount)
        {
            return nullptr;
        }
        rtcpChannel = rtpChannel + 1;
    }
    uses_.push_back({rtpChannel, rtcpChannel, nullptr});
    return std::make_unique<Lease>(shared_from_this(), rtpChannel, rtcpChannel);
}

bool InterleavedChannels::isFree(int channel) const
{
    return std::none_of(uses_.begin(), uses_.end(),
                        [channel](const Use& use)
                        { return use.rtpChannel == channel || use.rtcpChannel == channel; });
}

void InterleavedChannels::received(int channel, const std::uint8_t* data, std::size_t size)
{
    std::unique_ptr<SafePointer<InterleavedTransport>> transport;
    bool rtcp = false;
    {
        const SmallMutexLock guard(mutex_);
        for (const Use& use : uses_)
        {
            rtcp = use.rtcpChannel == channel;
            if ((rtcp || use.rtpChannel == channel) && use.transport != nullptr)
            {
                transport = std::make_unique<SafePointer<InterleavedTransport>>(*use.transport);
                break;
            }
        }
    }
    if (transport == nullptr)
    {
        return;
    }
    if (rtcp)
    {
        (*transport)->receivedRtcp(data, size);
    }
    else
    {
        (*transport)->receivedRtp(data, size);
    }
}

void InterleavedChannels::giveBack(int rtpChannel)
{
    std::unique_ptr<SafePointer<InterleavedTransport>> transport;  // destroyed without the lock
    const SmallMutexLock guard(mutex_);
    const auto found = std::find_if(uses_.begin(), uses_.end(),
                                    [rtpChannel](const Use& use) { return use.rtpChannel == rtpChannel; });
    if (found != uses_.end())
    {
        transport = std::move(found->transport);
        uses_.erase(found);
    }
}

void InterleavedChannels::deliver(int rtpChannel, const SafePointer<InterleavedTransport>& transport)
{
    auto handle = std::make_unique<SafePointer<InterleavedTransport>>(transport);
    const SmallMutexLock guard(mutex_);
    for (Use& use : uses_)
    {
        if (use.rtpChannel == rtpChannel)
        {
            use.transport.swap(handle);
        }
    }
}

}  // namespace refhost
