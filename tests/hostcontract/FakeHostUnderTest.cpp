#include <atomic>

#include "tests/fakehost/FakeHost.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

std::atomic<int> living{0};

class CountedConnection : public IConnection
{
public:
    CountedConnection() : IConnection(IConnection::udpUnicast)
    {
        ++living;
    }
    ~CountedConnection() noexcept(false) override
    {
        --living;
    }
};

}  // namespace

void HostUnderTest::prepareStreams()
{
    FakeHost::instance().reset();
}

void HostUnderTest::dropStreams()
{
    FakeHost::instance().reset();
}

void HostUnderTest::prepareFailingStream(int& cameraId, int& streamId)
{
    cameraId = 1;
    streamId = 0;
    FakeHost::instance().always("MediaInfoTool::createMediaInfo", -777);
}

void HostUnderTest::prepareFailingRecording(RecordInfo&)
{
    FakeHost::instance().always("MediaInfoTool::createPlaybackMediaInfo", -777);
}

SafePointer<IConnection> HostUnderTest::makeConnection()
{
    return SafePointer<IConnection>(new CountedConnection);
}

int HostUnderTest::livingConnections()
{
    return living;
}

std::chrono::microseconds HostUnderTest::now()
{
    return FakeHost::instance().now();
}
