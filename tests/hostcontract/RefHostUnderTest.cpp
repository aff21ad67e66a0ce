#include <atomic>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "refhost/media/Device.h"
#include "refhost/media/StreamSource.h"
#include "refhost/rtp/RtpTransport.h"
#include "tests/SampleTracks.h"
#include "tests/hostcontract/HostUnderTest.h"

namespace
{

std::atomic<int> living{0};

constexpr refhost::TransportTraits sinkTraits;

/// Accepts every packet and sends none.
class SinkTransport : public refhost::RtpTransport
{
public:
    SinkTransport() : RtpTransport(IConnection::udpUnicast, sinkTraits)
    {
        ++living;
    }
    ~SinkTransport() noexcept(false) override
    {
        --living;
    }

    void setListener(std::weak_ptr<refhost::TransportListener>) override {}
    refhost::SendStatus state() const override
    {
        return refhost::SendStatus::sent;
    }
    refhost::SendResult send(const refhost::AccessUnitPtr& unit, std::size_t firstPacket,
                             const refhost::RtpHeaderFields&, bool) override
    {
        return {refhost::SendStatus::sent, unit->packets.size() - firstPacket};
    }
    void sendRtcp(const std::uint8_t*, std::size_t) override {}
    void hold() override {}
    void release() override {}
    void close() override {}
};

/// A stream that is described and never sends.
class SilentSource : public refhost::StreamSource
{
public:
    Description describe(std::vector<SubMediaInfo>& tracks) override
    {
        tracks = {SampleTracks::video(), SampleTracks::audio()};
        return Description::ready;
    }
    void attach(const std::string&, int, std::shared_ptr<refhost::AccessUnitSink>) override {}
    void detach(const refhost::AccessUnitSink*) override {}
    void attachMedia(std::shared_ptr<refhost::EncodedUnitSink>) override {}
    void detachMedia(const refhost::EncodedUnitSink*) override {}
    void acquire() override {}
    void release() override {}
    void requestKeyFrame() override {}
};

class OneStream : public refhost::StreamDirectory
{
public:
    std::shared_ptr<refhost::StreamSource> find(int cameraId, int streamId) override
    {
        return cameraId == 1 && streamId == 0 ? source_ : nullptr;
    }

private:
    std::shared_ptr<refhost::StreamSource> source_ = std::make_shared<SilentSource>();
};

}  // namespace

void HostUnderTest::prepareStreams()
{
    refhost::Device::setStreams(std::make_shared<OneStream>());
}

void HostUnderTest::dropStreams()
{
    refhost::Device::setStreams(nullptr);
}

void HostUnderTest::prepareFailingStream(int& cameraId, int& streamId)
{
    cameraId = 1;
    streamId = 7;
}

// Nothing is recorded.
void HostUnderTest::prepareFailingRecording(RecordInfo&) {}

SafePointer<IConnection> HostUnderTest::makeConnection()
{
    return SafePointer<IConnection>(new SinkTransport);
}

int HostUnderTest::livingConnections()
{
    return living;
}

std::chrono::microseconds HostUnderTest::now()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}
