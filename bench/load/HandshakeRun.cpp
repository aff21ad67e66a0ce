#include "bench/load/HandshakeRun.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "bench/load/Poller.h"
#include "bench/load/ProcessMeter.h"
#include "bench/load/TlsClient.h"

namespace rtspload
{
namespace
{

constexpr int threads = 2;

struct Counts
{
    std::atomic<std::int64_t> done{0};
    std::atomic<std::int64_t> resumed{0};
    std::atomic<std::int64_t> failed{0};
};

using Session = std::unique_ptr<SSL_SESSION, decltype(&SSL_SESSION_free)>;

/// The answer brings the ticket along that the next connection resumes with.
bool askOptions(TlsClient& client, int socket, const std::string& url)
{
    constexpr int patienceMs = 10000;
    std::array<char, 32768> answer;
    client.send("OPTIONS " + url + " RTSP/1.0\r\nCSeq: 1\r\n\r\n");
    ssize_t size = client.receive(answer.data(), answer.size());
    while (size < 0)
    {
        pollfd waited{socket, POLLIN, 0};
        if (poll(&waited, 1, patienceMs) != 1)
        {
            return false;
        }
        size = client.receive(answer.data(), answer.size());
    }
    return size > 0;
}

void connectAgainAndAgain(const LoadOptions& options, std::int64_t endNs, Counts& counts)
{
    Session session(nullptr, &SSL_SESSION_free);
    while (nowNs() < endNs)
    {
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        TlsClient client;
        const auto* const address = reinterpret_cast<const sockaddr*>(&options.url.address);
        if (connect(socket, address, sizeof options.url.address) == 0 && client.open(socket, session.get()) &&
            askOptions(client, socket, options.url.text))
        {
            ++counts.done;
            counts.resumed += SSL_session_reused(client.ssl());
            SSL_shutdown(client.ssl());
            session.reset(options.resume ? SSL_get1_session(client.ssl()) : nullptr);
        }
        else
        {
            ++counts.failed;
        }
        client.close();
        close(socket);
    }
}

}  // namespace

HandshakeRun::HandshakeRun(const LoadOptions& options) : options_(options) {}

bool HandshakeRun::run(Report& report)
{
    const ProcessUse before =
        options_.serverProcess != 0 ? ProcessUse::of(options_.serverProcess) : ProcessUse();
    const std::int64_t begin = nowNs();
    Counts counts;
    std::vector<std::thread> clients;
    clients.reserve(threads);
    for (int i = 0; i < threads; ++i)
    {
        clients.emplace_back(connectAgainAndAgain, std::cref(options_),
                             begin + static_cast<std::int64_t>(options_.seconds * 1e9), std::ref(counts));
    }
    for (std::thread& client : clients)
    {
        client.join();
    }
    const double seconds = static_cast<double>(nowNs() - begin) / 1e9;
    report.add("mode", "handshakes");
    report.add("handshakes", counts.done.load());
    report.add("resumed", counts.resumed.load());
    report.add("failed", counts.failed.load());
    report.add("handshakes_per_second", static_cast<double>(counts.done) / seconds, 1);
    if (options_.serverProcess != 0 && counts.done > 0)
    {
        const ProcessUse after = ProcessUse::of(options_.serverProcess);
        report.add("server_us_per_handshake",
                   (after.cpuSeconds - before.cpuSeconds) * 1e6 / static_cast<double>(counts.done), 1);
    }
    return counts.failed == 0 && counts.done > 0 &&
           (!options_.resume || counts.resumed >= counts.done - threads);
}

}  // namespace rtspload
