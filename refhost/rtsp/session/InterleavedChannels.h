#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/base/SmallMutex.h"
#include "refhost/rtp/InterleavedTransport.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Assigns the interleaved channels of one connection to tracks, and passes received frames to their
/// transports. Held by the connection and by every lease. Threads: any; one lock of its own.
class InterleavedChannels : public std::enable_shared_from_this<InterleavedChannels>
{
public:
    /// A pair of channels in use until the lease is destroyed.
    class Lease
    {
    public:
        Lease(std::shared_ptr<InterleavedChannels> channels, int rtpChannel, int rtcpChannel);
        ~Lease();
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        int rtpChannel() const;
        int rtcpChannel() const;
        /// Passes frames of the channels to `transport` from now on, until the lease is destroyed.
        void deliverTo(const SafePointer<InterleavedTransport>& transport);

    private:
        const std::shared_ptr<InterleavedChannels> channels_;
        const int rtpChannel_;
        const int rtcpChannel_;
    };

    /// Takes the requested pair, or the lowest free pair of neighbours if one of its channels is in use.
    /// \param rtpChannel, rtcpChannel  0 to 255, or -1 for any
    /// \returns null when no pair is free
    std::unique_ptr<Lease> lease(int rtpChannel, int rtcpChannel);

    /// Passes a frame from the client to the transport of its channel; drops one of an unused channel.
    void received(int channel, const std::uint8_t* data, std::size_t size);

private:
    struct Use
    {
        int rtpChannel;
        int rtcpChannel;
        std::unique_ptr<SafePointer<InterleavedTransport>> transport;
    };

    bool isFree(int channel) const OV_REQUIRES(mutex_);
    void giveBack(int rtpChannel);
    void deliver(int rtpChannel, const SafePointer<InterleavedTransport>& transport);

    SmallMutex mutex_;
    std::vector<Use> uses_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
