#pragma once
// Tested by tests/refhost/playback/PlaybackTransports_test.cpp.

#include "live/PayloadSize.h"

namespace refhost
{

/// Sizes of RTP packets where nothing better is known of their path.
struct PacketSize
{
    /// MTU of an Ethernet frame's path through a tunnel, bytes. The library leaves it to the host.
    static constexpr int mtu = 1440;
    /// RTP payload that fits it with the headers in front, bytes: what the library asks for, too.
    static constexpr int payload = PayloadSize::standard;
};

}  // namespace refhost
