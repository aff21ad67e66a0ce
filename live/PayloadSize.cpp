#include "live/PayloadSize.h"

#include "hostapi/device/IConnection.h"
#include "hostapi/live/LiveDispatcherMgr.h"

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

bool PayloadSize::byTransport(int transportKind, LiveDispatcherMgr& dispatcher, int& bytes)
{
    if (!isKnownTransport(transportKind))
    {
        return false;
    }
    bytes = transportKind == IConnection::udpUnicast ? dispatcher.getMTUParam().getMTUValue() - headerRoom
                                                     : standard;
    return true;
}
