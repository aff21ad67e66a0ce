#pragma once

#include <vector>

#include "refhost/rtp/RtpTransport.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Holds transports while it exists, so that the response to PLAY is sent before the first packet.
///
/// Requires: destroyed without a lock held, because releasing a transport calls its listener.
class TransportHold
{
public:
    TransportHold() = default;
    TransportHold(TransportHold&&) = default;
    TransportHold& operator=(TransportHold&&) = delete;
    ~TransportHold();

    void add(const SafePointer<RtpTransport>& transport);
    /// Takes over the transports of `other`.
    void absorb(TransportHold& other);

private:
    std::vector<SafePointer<RtpTransport>> held_;
};

}  // namespace refhost
