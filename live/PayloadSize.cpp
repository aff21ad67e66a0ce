#include "live/PayloadSize.h"

namespace
{

// Values of IConnection::transportKind. Defined here, so that the library needs only that field of a host's
// header.
enum Kind
{
    interleavedTcp = 1,
    udpUnicast = 2,
    udpMulticast = 3,
};

// Bytes reserved for the headers of RTP, UDP and IP with their extensions.
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
