// The cost of one access unit in the thread that sends it to many viewers, kernel included.

#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/live/LiveDispatcher.h"
#include "refhost/rtp/InterleavedTransport.h"
#include "refhost/rtp/udp/UdpServer.h"
#include "tests/refhost/live/LiveFakes.h"

namespace
{

using namespace refhost;
using refhost::test::FakeDirectory;
using refhost::test::FakeSource;
using refhost::test::makeUnit;

constexpr const char* stream = "1/0";
constexpr const char* videoTrack = "trackID=0";
constexpr const char* audioTrack = "trackID=1";

class LoopbackSocket
{
public:
    explicit LoopbackSocket(int number) : owned_(number)
    {
        if (!owned_)
        {
            throw std::runtime_error(std::strerror(errno));
        }
    }

    int get() const
    {
        return owned_.get();
    }

    SocketAddress bound() const
    {
        return SocketAddress::localOf(owned_.get());
    }

    /// Reads everything that is there.
    void drain() const
    {
        static std::vector<char> room(1 << 20);
        while (::recv(owned_.get(), room.data(), room.size(), MSG_DONTWAIT) > 0)
        {
        }
    }

private:
    Descriptor owned_;
};

LoopbackSocket openLoopback(int type)
{
    LoopbackSocket opened(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
    const SocketAddress address = *SocketAddress::parse("127.0.0.1");
    if (::bind(opened.get(), address.get(), address.size()) != 0)
    {
        throw std::runtime_error(std::strerror(errno));
    }
    return opened;
}

/// An RTSP connection whose client reads: one send() per frame.
class SocketWriter : public FrameWriter
{
public:
    explicit SocketWriter(int descriptor) : descriptor_(descriptor) {}

    SendStatus writeFrames(const std::uint8_t* data, std::size_t size, bool more) override
    {
        const ssize_t written =
            ::send(descriptor_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL | (more ? MSG_MORE : 0));
        return written == static_cast<ssize_t>(size) ? SendStatus::sent : SendStatus::closed;
    }

    void notifyWhenWritable(std::weak_ptr<TransportListener>) override {}

private:
    const int descriptor_;
};

constexpr TransportTraits traitsOfNone = []
{
    TransportTraits traits;
    traits.joinsUnits = true;
    traits.reportsReady = true;
    return traits;
}();

/// A transport that costs nothing: the rest is the dispatch itself.
class NoTransport : public RtpTransport
{
public:
    NoTransport() : RtpTransport(interleavedTcp, traitsOfNone) {}

    void setListener(std::weak_ptr<TransportListener>) override {}

    SendStatus state() const override
    {
        return SendStatus::sent;
    }

    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields&, bool) override
    {
        return {SendStatus::sent, unit->packets.size() - firstPacket};
    }

    void sendRtcp(const std::uint8_t*, std::size_t) override {}

    void hold() override {}

    void release() override {}

    void close() override {}
};

enum class Transport
{
    none,
    udp,
    udpWithoutSegments,
    tcp
};

/// A camera and its viewers.
class Subscribers
{
public:
    Subscribers(Transport transport, int viewers)
        : source_(std::make_shared<FakeSource>()), dispatcher_(LiveSettings())
    {
        Device::setStreams(std::make_shared<FakeDirectory>(source_));
        UdpServer::Options options;
        options.segmentationOffload = transport == Transport::udp;
        std::string error;
        server_ = UdpServer::open(options, error);
        for (int i = 0; i < viewers; ++i)
        {
            const std::string session = std::to_string(i);
            addTrack(session, videoTrack, transport);
            addTrack(session, audioTrack, transport);
        }
        source_->feed(videoTrack, makeUnit(0, 0, true, 1));
        source_->feed(audioTrack, makeUnit(0, 0, true, 1, 160, 160));
        drain();
    }

    ~Subscribers()
    {
        for (std::size_t i = 0; dispatcher_.trackCount() > 0; ++i)
        {
            dispatcher_.remove(stream, std::to_string(i), videoTrack);
            dispatcher_.remove(stream, std::to_string(i), audioTrack);
        }
        Device::setStreams(nullptr);
    }

    void feed(const char* track, const AccessUnitPtr& unit)
    {
        source_->feed(track, unit);
    }

    void drain() const
    {
        for (const LoopbackSocket& client : clients_)
        {
            client.drain();
        }
    }

private:
    void addTrack(const std::string& session, const char* track, Transport transport)
    {
        SubMediaInfo info;
        info.trackId = track;
        info.mediaType = track == videoTrack ? "video" : "audio";
        info.payloadType = track == videoTrack ? 96 : 0;
        info.clockRate = track == videoTrack ? 90000 : 8000;
        dispatcher_.initTrack(stream, session, track, info, 1364);
        dispatcher_.addConnection(stream, session, track, connect(transport));
        dispatcher_.play(stream, session, track);
    }

    SafePointer<IConnection> connect(Transport transport)
    {
        switch (transport)
        {
            case Transport::tcp:
                return connectTcp();
            case Transport::none:
                return SafePointer<IConnection>(new NoTransport);
            default:
                return connectUdp();
        }
    }

    SafePointer<IConnection> connectUdp()
    {
        clients_.push_back(openLoopback(SOCK_DGRAM));
        const SocketAddress address = clients_.back().bound();
        return server_->makeTransport(address, address.port(), address.port(), nullptr);
    }

    SafePointer<IConnection> connectTcp()
    {
        // Video and audio of a viewer share a connection, as they do in RTSP.
        second_ = !second_;
        if (!second_)
        {
            return SafePointer<InterleavedTransport>(
                new InterleavedTransport(writers_.back(), 2, 3, nullptr));
        }
        const LoopbackSocket listener = openLoopback(SOCK_STREAM);
        ::listen(listener.get(), 1);
        clients_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const SocketAddress address = listener.bound();
        if (::connect(clients_.back().get(), address.get(), address.size()) != 0)
        {
            throw std::runtime_error(std::strerror(errno));
        }
        servers_.emplace_back(::accept(listener.get(), nullptr, nullptr));
        const int yes = 1;
        setsockopt(servers_.back().get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
        writers_.push_back(std::make_shared<SocketWriter>(servers_.back().get()));
        return SafePointer<InterleavedTransport>(new InterleavedTransport(writers_.back(), 0, 1, nullptr));
    }

    const std::shared_ptr<FakeSource> source_;
    LiveDispatcher dispatcher_;
    std::shared_ptr<UdpServer> server_;
    std::vector<LoopbackSocket> clients_;
    std::vector<LoopbackSocket> servers_;
    std::vector<std::shared_ptr<SocketWriter>> writers_;
    bool second_ = false;
};

double threadSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

constexpr std::int64_t nsPerMs = 1'000'000;

/// Sends units, measures the thread's time for that, and lets the viewers read outside of it.
class Meter
{
public:
    explicit Meter(Subscribers& subscribers) : subscribers_(subscribers) {}

    void feed(const char* track, const AccessUnitPtr& unit)
    {
        const double started = threadSeconds();
        subscribers_.feed(track, unit);
        seconds_ += threadSeconds() - started;
        subscribers_.drain();
    }

    double seconds() const
    {
        return seconds_;
    }

private:
    Subscribers& subscribers_;
    double seconds_ = 0;
};

/// One frame. Arguments: viewers, packets of the frame, payload bytes of the last one (of the others:
/// 1364).
void oneFrame(benchmark::State& state, Transport transport)
{
    const int viewers = static_cast<int>(state.range(0));
    Subscribers subscribers(transport, viewers);
    Meter meter(subscribers);
    std::int64_t capture = 0;
    double before = 0;
    for (auto _ : state)
    {
        capture += 40 * nsPerMs;
        meter.feed(videoTrack, makeUnit(static_cast<std::uint32_t>(capture / 1000), capture, true,
                                        static_cast<std::size_t>(state.range(1)), 1364,
                                        static_cast<std::size_t>(state.range(2))));
        state.SetIterationTime(meter.seconds() - before);
        before = meter.seconds();
    }
    state.counters["us_per_viewer"] =
        meter.seconds() * 1e6 / static_cast<double>(state.iterations()) / static_cast<double>(viewers);
}

/// A second of a 2 Mbit/s stream with PCMU audio: a key frame of 50 kB, 24 frames of 10 kB, 50 blocks of
/// 20 ms.
void oneSecond(benchmark::State& state, Transport transport)
{
    const int viewers = static_cast<int>(state.range(0));
    Subscribers subscribers(transport, viewers);
    Meter meter(subscribers);
    std::int64_t capture = 0;
    double before = 0;
    for (auto _ : state)
    {
        for (int i = 0; i < 25; ++i)
        {
            for (int block = 0; block < 2; ++block)
            {
                capture += 20 * nsPerMs;
                meter.feed(audioTrack, makeUnit(static_cast<std::uint32_t>(capture / 125000), capture, true,
                                                1, 160, 160));
            }
            const auto timestamp = static_cast<std::uint32_t>(capture / 11111);
            meter.feed(videoTrack, i == 0 ? makeUnit(timestamp, capture, true, 37, 1364, 896)
                                          : makeUnit(timestamp, capture, false, 8, 1364, 452));
        }
        state.SetIterationTime(meter.seconds() - before);
        before = meter.seconds();
    }
    state.counters["core_percent_per_viewer"] =
        meter.seconds() * 100 / static_cast<double>(state.iterations()) / static_cast<double>(viewers);
}

void sizes(benchmark::internal::Benchmark* each)
{
    each->ArgNames({"viewers", "packets", "last"})->Args({1000, 8, 452})->Args({1000, 37, 896});
    each->UseManualTime()->Unit(benchmark::kMicrosecond);
}

void second(benchmark::internal::Benchmark* each)
{
    each->ArgNames({"viewers"})->Args({1000})->UseManualTime()->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK_CAPTURE(oneFrame, dispatch, Transport::none)->Apply(sizes);
BENCHMARK_CAPTURE(oneFrame, udp, Transport::udp)->Apply(sizes);
BENCHMARK_CAPTURE(oneFrame, udp_plain, Transport::udpWithoutSegments)->Apply(sizes);
BENCHMARK_CAPTURE(oneFrame, tcp, Transport::tcp)->Apply(sizes);
BENCHMARK_CAPTURE(oneSecond, dispatch, Transport::none)->Apply(second);
BENCHMARK_CAPTURE(oneSecond, udp, Transport::udp)->Apply(second);
BENCHMARK_CAPTURE(oneSecond, udp_plain, Transport::udpWithoutSegments)->Apply(second);
BENCHMARK_CAPTURE(oneSecond, tcp, Transport::tcp)->Apply(second);

int main(int argc, char** argv)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
