#pragma once
// Tested by tests/live/LiveControllers_test.cpp, tests/playback/OVPlayBackSetup_test.cpp.

#include "support/Export.h"
#include "support/SafePointer.h"

/// Max bytes of RTP payload in a packet, by the transport kind of its connection.
class OV_INTERNAL PayloadSize
{
public:
    /// For transports without a known path MTU: with all headers it fits an Ethernet frame, even through a
    /// tunnel.
    static constexpr int standard = 1364;

    /// \returns true for the transport kinds that SETUP accepts
    static bool isKnownTransport(int transportKind);

    /// The size for UDP unicast follows the dispatcher's MTU; for every other kind the handle may be empty.
    /// \tparam Dispatcher  has getMTUParam(), as LiveDispatcherMgr and RTPPlayBackDispacher do
    /// \param[out] bytes  the size; unchanged for an unknown kind
    /// \returns as isKnownTransport()
    template <class Dispatcher>
    static bool byTransport(int transportKind, const SafePointer<Dispatcher>& dispatcher, int& bytes)
    {
        if (!isKnownTransport(transportKind))
        {
            return false;
        }
        bytes =
            followsMtu(transportKind) ? withoutHeaders(dispatcher->getMTUParam().getMTUValue()) : standard;
        return true;
    }

private:
    static bool followsMtu(int transportKind);
    static int withoutHeaders(int mtu);
};
