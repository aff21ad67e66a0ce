#include "tests/fakehost/FakeConnection.h"

#include "tests/fakehost/FakeHost.h"

FakeConnection::FakeConnection(int kind) : IConnection(kind)
{
    FakeHost::instance().born("IConnection");
}

FakeConnection::~FakeConnection() noexcept(false)
{
    FakeHost::instance().died("IConnection");
}
