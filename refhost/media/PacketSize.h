#pragma once
// Tested by tests/refhost/playback/PlaybackTransports_test.cpp.

#include "live/PayloadSize.h"

namespace refhost
{

/// Default sizes of RTP packets, for paths of unknown MTU.
struct PacketSize
{
    /// Bytes; fits an Ethernet path through a tunnel. The library leaves the MTU to the host.
    static constexpr int mtu = 1440;
    /// Bytes of RTP payload that fit the MTU with all headers; the library requests the same.
    static constexpr int payload = PayloadSize::standard;
};

}  // namespace refhost
