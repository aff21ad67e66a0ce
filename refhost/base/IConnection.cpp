#include "hostapi/device/IConnection.h"

IConnection::IConnection(int kind) : transportKind(kind) {}

IConnection::~IConnection() noexcept(false) = default;
