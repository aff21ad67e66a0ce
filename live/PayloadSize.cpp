#include "live/PayloadSize.h"

namespace
{

// Values of IConnection::transportKind. The library's own, so that it needs no more of a host's header than
// that field.
enum Kind
{
    interleavedTcp = 1,
    udpUnicast = 2,
    udpMulticast = 3,
};

// Room below the payload for the headers of RTP, UDP and IP, with their extensions.
const int headerRoom = 76;

}  // namespace

bool PayloadSize::isKnownTransport(int transportKind)
{
    return transportKind == interleavedTcp || transportKind == udpUnicast || transportKind == udpMulticast;
}

bool PayloadSize::followsMtu(int transportKind)
{
    return transportKind == udpUnicast;
}

int PayloadSize::withoutHeaders(int mtu)
{
    return mtu - headerRoom;
}
