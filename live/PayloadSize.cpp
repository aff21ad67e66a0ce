#include "live/PayloadSize.h"

namespace
{

// Room below the payload for the headers of RTP, UDP and IP, with their extensions.
const int headerRoom = 76;

}  // namespace

bool PayloadSize::isKnownTransport(int transportKind)
{
    return transportKind == IConnection::interleavedTcp || transportKind == IConnection::udpUnicast ||
           transportKind == IConnection::udpMulticast;
}

int PayloadSize::withoutHeaders(int mtu)
{
    return mtu - headerRoom;
}
