#pragma once

#include <vector>

#include "refhost/rtp/RtpTransport.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Holds transports back for as long as it lives, so that the answer to PLAY leaves before the first packet.
///
/// To be destroyed without a lock held: releasing tells the dispatch, which is not to be told under one.
class TransportHold
{
public:
    TransportHold() = default;
    TransportHold(TransportHold&&) = default;
    TransportHold& operator=(TransportHold&&) = delete;
    ~TransportHold();

    void add(const SafePointer<RtpTransport>& transport);
    /// Goes on holding what `other` holds, which holds nothing afterwards.
    void absorb(TransportHold& other);

private:
    std::vector<SafePointer<RtpTransport>> held_;
};

}  // namespace refhost
