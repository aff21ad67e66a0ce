// What one access unit costs the thread that deals it out to many viewers, kernel included.

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

#include "refhost/live/InterleavedTransport.h"
#include "refhost/live/LiveDispatcher.h"
#include "refhost/live/UdpAddress.h"
#include "refhost/live/UdpServer.h"
#include "tests/refhost/live/LiveFakes.h"

namespace
{

using namespace refhost;
using refhost::test::FakeDirectory;
using refhost::test::FakeSource;
using refhost::test::makeUnit;

constexpr const char* stream = "1/0";
constexpr const char* track = "trackID=0";

class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number)
    {
        if (number < 0)
        {
            throw std::runtime_error(std::strerror(errno));
        }
    }

    Descriptor(Descriptor&& other) noexcept : number_(other.number_)
    {
        other.number_ = -1;
    }

    Descriptor& operator=(Descriptor&&) = delete;

    ~Descriptor()
    {
        if (number_ >= 0)
        {
            ::close(number_);
        }
    }

    int get() const
    {
        return number_;
    }

    UdpAddress bound() const
    {
        UdpAddress address;
        socklen_t size = UdpAddress::room;
        getsockname(number_, address.fill(), &size);
        return address;
    }

    /// Reads everything that is there.
    void drain() const
    {
        static std::vector<char> room(1 << 20);
        while (::recv(number_, room.data(), room.size(), MSG_DONTWAIT) > 0)
        {
        }
    }

private:
    int number_;
};

Descriptor openLoopback(int type)
{
    Descriptor opened(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
    UdpAddress address;
    UdpAddress::parse("127.0.0.1", address);
    if (::bind(opened.get(), address.get(), address.size()) != 0)
    {
        throw std::runtime_error(std::strerror(errno));
    }
    return opened;
}

/// What an RTSP connection does with frames while its client reads: one send().
class SocketWriter : public FrameWriter
{
public:
    explicit SocketWriter(int descriptor) : descriptor_(descriptor) {}

    SendStatus writeFrames(const std::uint8_t* data, std::size_t size) override
    {
        const ssize_t written = ::send(descriptor_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        return written == static_cast<ssize_t>(size) ? SendStatus::sent : SendStatus::closed;
    }

    void notifyWhenWritable(std::weak_ptr<TransportListener>) override {}

private:
    const int descriptor_;
};

/// A way that costs nothing: what is left is the dispatch itself.
class NoTransport : public RtpTransport
{
public:
    NoTransport() : RtpTransport(interleavedTcp) {}

    void setListener(std::weak_ptr<TransportListener>) override {}

    SendStatus state() const override
    {
        return SendStatus::sent;
    }

    unsigned catchUpUnits() const override
    {
        return 0;
    }

    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields&) override
    {
        return {SendStatus::sent, unit->packets.size() - firstPacket};
    }

    void sendRtcp(const std::uint8_t*, std::size_t) override {}

    void hold() override {}

    void release() override {}

    void close() override {}
};

enum class Way
{
    none,
    udp,
    udpWithoutSegments,
    tcp
};

/// A camera and its viewers.
class Audience
{
public:
    Audience(Way way, int viewers) : source_(std::make_shared<FakeSource>()), dispatcher_(LiveSettings())
    {
        Device::setStreams(std::make_shared<FakeDirectory>(source_));
        UdpServer::Options options;
        options.segmentationOffload = way == Way::udp;
        std::string error;
        server_ = UdpServer::open(options, error);
        SubMediaInfo info;
        info.trackId = track;
        info.mediaType = "video";
        info.payloadType = 96;
        info.clockRate = 90000;
        for (int i = 0; i < viewers; ++i)
        {
            const std::string session = std::to_string(i);
            dispatcher_.initTrack(stream, session, track, info, 1364);
            dispatcher_.addConnection(stream, session, track, connect(way));
            dispatcher_.play(stream, session, track);
        }
        source_->feed(track, makeUnit(0, 0, true, 1));
        drain();
    }

    ~Audience()
    {
        for (std::size_t i = 0; dispatcher_.trackCount() > 0; ++i)
        {
            dispatcher_.remove(stream, std::to_string(i), track);
        }
        Device::setStreams(nullptr);
    }

    void feed(const AccessUnitPtr& unit)
    {
        source_->feed(track, unit);
    }

    void drain() const
    {
        for (const Descriptor& client : clients_)
        {
            client.drain();
        }
    }

private:
    SafePointer<IConnection> connect(Way way)
    {
        switch (way)
        {
            case Way::tcp:
                return connectTcp();
            case Way::none:
                return SafePointer<IConnection>(new NoTransport);
            default:
                return connectUdp();
        }
    }

    SafePointer<IConnection> connectUdp()
    {
        clients_.push_back(openLoopback(SOCK_DGRAM));
        sockaddr_storage client{};
        const UdpAddress address = clients_.back().bound();
        std::memcpy(&client, address.get(), address.size());
        return server_->makeTransport(client, address.port(), address.port(), nullptr);
    }

    SafePointer<IConnection> connectTcp()
    {
        const Descriptor listener = openLoopback(SOCK_STREAM);
        ::listen(listener.get(), 1);
        clients_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const UdpAddress address = listener.bound();
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
    std::vector<Descriptor> clients_;
    std::vector<Descriptor> servers_;
    std::vector<std::shared_ptr<SocketWriter>> writers_;
};

double threadSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// Arguments: viewers, packets of the unit, payload bytes of all packets but the last, of the last.
void fanOut(benchmark::State& state, Way way)
{
    const int viewers = static_cast<int>(state.range(0));
    Audience audience(way, viewers);
    std::uint32_t timestamp = 0;
    double seconds = 0;
    for (auto _ : state)
    {
        const auto unit =
            makeUnit(timestamp += 3600, 0, true, static_cast<std::size_t>(state.range(1)),
                     static_cast<std::size_t>(state.range(2)), static_cast<std::size_t>(state.range(3)));
        const double begin = threadSeconds();
        audience.feed(unit);
        const double taken = threadSeconds() - begin;
        state.SetIterationTime(taken);
        seconds += taken;
        audience.drain();
    }
    state.counters["us_per_viewer"] =
        seconds * 1e6 / static_cast<double>(state.iterations()) / static_cast<double>(viewers);
}

/// The units of a 2 Mbit/s stream with PCMU sound: a picture of 10 kB, a key picture of 50 kB, a block of 20
/// ms.
void units(benchmark::internal::Benchmark* each)
{
    each->ArgNames({"viewers", "packets", "bytes", "last"});
    each->Args({1000, 8, 1364, 452})->Args({1000, 37, 1364, 896})->Args({1000, 1, 160, 160});
    each->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(0.5);
}

}  // namespace

BENCHMARK_CAPTURE(fanOut, dispatch, Way::none)->Apply(units);
BENCHMARK_CAPTURE(fanOut, udp, Way::udp)->Apply(units);
BENCHMARK_CAPTURE(fanOut, udp_plain, Way::udpWithoutSegments)->Apply(units);
BENCHMARK_CAPTURE(fanOut, tcp, Way::tcp)->Apply(units);

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
