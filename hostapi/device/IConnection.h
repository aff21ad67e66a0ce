#pragma once

#include "hostapi/base/HostExport.h"

/// Where the packets of one track go to: the host's connection to a client.
///
/// Made by the host for one SETUP and held through SafePointer<IConnection>. The library reads the kind and
/// hands the handle to a dispatcher; it calls nothing else.
class OV_HOST_API IConnection
{
public:
    /// The transport kinds that the library accepts.
    enum TransportKind
    {
        interleavedTcp = 1,
        udpUnicast = 2,
        udpMulticast = 3
    };

    /// One of TransportKind; any other value is refused at SETUP. Stays the same after construction. It is
    /// the first data member: the library and its device meet in this layout.
    int transportKind;

    virtual ~IConnection() noexcept(false);
    IConnection(const IConnection&) = delete;
    IConnection& operator=(const IConnection&) = delete;

protected:
    /// \param kind  one of TransportKind
    explicit IConnection(int kind);
};
