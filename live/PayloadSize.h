#pragma once

class LiveDispatcherMgr;

/// How many bytes of RTP payload a packet may have, by the transport kind of its connection.
class PayloadSize
{
public:
    /// For every transport whose path tells nothing better: with all headers below it fits an Ethernet frame
    /// also through a tunnel.
    static constexpr int standard = 1364;

    /// \returns true for the transport kinds that SETUP accepts
    static bool isKnownTransport(int transportKind);

    /// Takes the size for UDP unicast from the dispatcher's MTU.
    /// \param[out] bytes  the size; left as it was for an unknown kind
    /// \returns as isKnownTransport()
    static bool byTransport(int transportKind, LiveDispatcherMgr& dispatcher, int& bytes);
};
