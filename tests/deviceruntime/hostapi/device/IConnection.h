#pragma once

#include "hostapi/base/HostExport.h"

/// A device's connection to a client.
class OV_HOST_API IConnection
{
public:
    int transportKind;

    DEVICE_OWN explicit IConnection(int kind);
    DEVICE_OWN virtual ~IConnection() noexcept(false);
};
