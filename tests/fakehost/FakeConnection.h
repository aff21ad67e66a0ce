#pragma once

#include "hostapi/device/IConnection.h"

/// A connection to nobody, of any transport kind.
class FakeConnection : public IConnection
{
public:
    explicit FakeConnection(int kind);
    ~FakeConnection() noexcept(false) override;
};
