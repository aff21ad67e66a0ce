#include "refhost/net/tls/TlsStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/socket.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/refhost/net/LoopbackPair.h"
#include "tests/refhost/net/tls/TlsPeer.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using Status = ByteStream::Status;
using test::LoopbackPair;
using test::makeTlsServer;
using test::TlsPeer;

class TlsStreamTest : public testing::Test
{
protected:
    ~TlsStreamTest() override
    {
        if (stream_ != nullptr)
        {
            runOn(loop_, [this] { stream_->close(); });
        }
    }

    /// The server's side, attached; the handshake waits for the client.
    void serve(std::shared_ptr<void> permit = nullptr)
    {
        stream_ = std::make_shared<TlsStream>(std::move(sockets_.near), sockets_.peer, *context_,
                                              std::move(permit));
        attach(*stream_);
    }

    void attach(ByteStream& stream)
    {
        stream.attach(loop_,
                      [this, &stream](std::uint32_t ready)
                      {
                          reported_ |= ready;
                          if ((ready & ByteStream::receivable) != 0)
                          {
                              receive(stream);
                          }
                          if ((ready & ByteStream::hungUp) != 0)
                          {
                              hungUp_ = true;
                              stream.watchReceive(false);
                          }
                      });
    }

    void receive(ByteStream& stream)
    {
        char bytes[1000];
        const ByteStream::Result result = stream.receive(bytes, sizeof bytes);
        if (result.status == Status::ended || result.status == Status::failed)
        {
            last_ = result.status;
            stream.watchReceive(false);
        }
        received_ += result.count;
    }

    /// \returns how many bytes the stream accepted at once
    std::size_t send(std::string_view first, std::string_view second = {})
    {
        std::size_t count = 0;
        runOn(loop_,
              [&]
              {
                  const std::string_view parts[] = {first, second};
                  count = stream_->send(parts, second.empty() ? 1 : 2, false).count;
              });
        return count;
    }

    /// The lengths of the records that wait at the client.
    std::vector<std::size_t> waitingRecords() const
    {
        std::string bytes(200000, '\0');
        const ssize_t size = ::recv(far(), bytes.data(), bytes.size(), MSG_PEEK);
        std::vector<std::size_t> lengths;
        for (std::size_t at = 0; at + 5 <= static_cast<std::size_t>(std::max<ssize_t>(size, 0));)
        {
            const auto high = static_cast<unsigned char>(bytes[at + 3]);
            const auto low = static_cast<unsigned char>(bytes[at + 4]);
            lengths.push_back(static_cast<std::size_t>(high) << 8 | low);
            at += 5 + lengths.back();
        }
        return lengths;
    }

    template <class Condition>
    static bool eventually(const Condition& holds)
    {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        while (!holds() && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::yield();
        }
        return holds();
    }

    int far() const
    {
        return sockets_.far.get();
    }

    EventLoop loop_{"tls"};
    LoopbackPair sockets_;
    std::unique_ptr<TlsContext> context_ = makeTlsServer();
    std::shared_ptr<TlsStream> stream_;
    std::atomic<std::uint32_t> reported_{0};
    std::atomic<bool> hungUp_{false};
    std::atomic<std::size_t> received_{0};
    std::atomic<Status> last_{Status::blocked};
};

TEST_F(TlsStreamTest, AnAccessUnitLeavesAsRecordsAsLargeAsPossible)
{
    serve();
    TlsPeer peer(far());
    ASSERT_TRUE(peer.connect());
    peer.write("x");
    ASSERT_TRUE(eventually([this] { return received_ == 1; }));
    char ticket[16384];
    ASSERT_GT(::recv(far(), ticket, sizeof ticket, 0), 0);
    const std::string response(300, 'r');
    const std::string unit(40000, 'u');
    EXPECT_EQ(send(response, unit), response.size() + unit.size());
    const std::vector<std::size_t> records = waitingRecords();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_GT(records[0], 16384u);
    EXPECT_EQ(records[1], records[0]);
}

TEST_F(TlsStreamTest, ManyBytesAgainstASlowReaderArriveInOrderAndFewAreHeld)
{
    serve();
    TlsPeer peer(far());
    ASSERT_TRUE(peer.connect());
    std::string all;
    for (int i = 0; all.size() < (4u << 20); ++i)
    {
        all += std::to_string(i) + " ";
    }
    std::size_t accepted = 0;
    std::size_t count = 0;
    do
    {
        count = send(std::string_view(all).substr(accepted));
        EXPECT_LE(count, TlsStream::maxAccepted);
        accepted += count;
    } while (count != 0);
    EXPECT_GT(accepted, 0u);
    EXPECT_EQ(send("nothing more"), 0u) << "while bytes wait";
    std::string arrived;
    while (arrived.size() < accepted)
    {
        const std::string more = peer.read();
        ASSERT_FALSE(more.empty());
        arrived += more;
    }
    EXPECT_TRUE(arrived == all.substr(0, accepted));
    EXPECT_TRUE(eventually([this] { return send("y") == 1; }));
}

TEST_F(TlsStreamTest, AHandshakeThatStopsLeavesTheStreamBlockedUntilItIsClosed)
{
    auto permit = std::make_shared<int>(0);
    const std::weak_ptr<int> held = permit;
    serve(std::move(permit));
    const std::string start("\x16\x03\x01\x02\x00\x01\x00\x01", 8);
    ASSERT_EQ(8, ::send(far(), start.data(), start.size(), MSG_NOSIGNAL));
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(send("x"), 0u);
    }
    EXPECT_EQ(reported_, 0u);
    EXPECT_FALSE(held.expired());
    runOn(loop_, [this] { stream_->close(); });
    EXPECT_TRUE(held.expired());
}

TEST_F(TlsStreamTest, AFinishedHandshakeIsNotCountedAnyMore)
{
    auto permit = std::make_shared<int>(0);
    const std::weak_ptr<int> held = permit;
    serve(std::move(permit));
    TlsPeer peer(far());
    ASSERT_TRUE(peer.connect());
    EXPECT_TRUE(eventually([&] { return held.expired(); }));
}

TEST_F(TlsStreamTest, WhatIsNoTlsEndsTheConnectionWithoutAReset)
{
    auto permit = std::make_shared<int>(0);
    const std::weak_ptr<int> held = permit;
    serve(std::move(permit));
    const std::string request = "OPTIONS rtsp://127.0.0.1/ RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    ASSERT_GT(::send(far(), request.data(), request.size(), MSG_NOSIGNAL), 0);
    EXPECT_TRUE(eventually([this] { return hungUp_.load(); }));
    EXPECT_TRUE(held.expired());
    runOn(loop_, [this] { stream_->close(); });
    std::string answer;
    char bytes[256];
    ssize_t count = 0;
    while ((count = ::recv(far(), bytes, sizeof bytes, 0)) > 0)
    {
        answer.append(bytes, static_cast<std::size_t>(count));
    }
    EXPECT_EQ(count, 0);
    EXPECT_EQ(answer.rfind("RTSP/1.0 400 ", 0), 0U) << answer;
}

TEST_F(TlsStreamTest, AClientOfATooOldVersionGetsAnAlert)
{
    TlsContext::Server options = test::tlsServerOptions();
    options.minVersion = "1.3";
    context_ = makeTlsServer(options);
    serve();
    TlsPeer::Options old;
    old.version = TLS1_2_VERSION;
    TlsPeer peer(far(), old);
    EXPECT_FALSE(peer.connect());
    EXPECT_EQ(ERR_GET_REASON(ERR_peek_error()), SSL_R_TLSV1_ALERT_PROTOCOL_VERSION);
    ERR_clear_error();
    EXPECT_TRUE(eventually([this] { return hungUp_.load(); }));
}

TEST_F(TlsStreamTest, GarbageAfterTheHandshakeFails)
{
    serve();
    TlsPeer peer(far());
    ASSERT_TRUE(peer.connect());
    peer.sendRaw(std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, 'g'));
    EXPECT_TRUE(eventually([this] { return last_ == Status::failed; }));
    EXPECT_EQ(received_, 0u);
    runOn(loop_,
          [this]
          {
              const std::string_view part = "x";
              EXPECT_EQ(stream_->send(&part, 1, false).status, Status::failed);
          });
}

TEST_F(TlsStreamTest, AnEndWithoutCloseNotifyIsAFailure)
{
    serve();
    TlsPeer peer(far());
    ASSERT_TRUE(peer.connect());
    peer.write("abc");
    ASSERT_TRUE(eventually([this] { return received_ == 3; }));
    ::shutdown(far(), SHUT_WR);
    EXPECT_TRUE(eventually([this] { return last_ == Status::failed; }));
}

TEST_F(TlsStreamTest, ATruncatedRecordIsAFailureAndGivesNothing)
{
    serve();
    TlsPeer peer(far());
    ASSERT_TRUE(peer.connect());
    const std::string record = peer.encrypted("secret");
    peer.sendRaw(record.substr(0, record.size() - 1));
    ::shutdown(far(), SHUT_WR);
    EXPECT_TRUE(eventually([this] { return last_ == Status::failed; }));
    EXPECT_EQ(received_, 0u);
}

TEST_F(TlsStreamTest, AClientCannotRenegotiate)
{
    serve();
    TlsPeer::Options options;
    options.version = TLS1_2_VERSION;
    TlsPeer peer(far(), options);
    ASSERT_TRUE(peer.connect());
    ASSERT_EQ(1, SSL_renegotiate(peer.ssl()));
    EXPECT_FALSE(peer.connect());
    EXPECT_EQ(received_, 0u);
}

TEST_F(TlsStreamTest, AClientThatAsksForKeysAndReadsNothingIsNotReadForever)
{
    const int small = 4096;
    ::setsockopt(far(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    ::setsockopt(far(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    ::setsockopt(sockets_.near.get(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    ::setsockopt(sockets_.near.get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    serve();
    TlsPeer::Options options;
    options.version = TLS1_3_VERSION;
    TlsPeer peer(far(), options);
    ASSERT_TRUE(peer.connect());
    const timeval patience{0, 500000};
    ::setsockopt(far(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    constexpr int max = 100000;
    int sent = 0;
    for (bool taken = true; taken && sent < max; ++sent)
    {
        SSL_key_update(peer.ssl(), SSL_KEY_UPDATE_REQUESTED);
        const std::string record = peer.encrypted("x");
        taken =
            ::send(far(), record.data(), record.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(record.size());
    }
    EXPECT_LT(sent, max);
}

TEST_F(TlsStreamTest, KeysAreReplacedBeforeTheyAreWornOut)
{
    TlsContext::Server options = test::tlsServerOptions();
    options.recordsPerKey = 3;
    context_ = makeTlsServer(options);
    serve();
    TlsPeer::Options client;
    client.version = TLS1_3_VERSION;
    TlsPeer peer(far(), client);
    ASSERT_TRUE(peer.connect());
    int updates = 0;
    SSL_set_msg_callback(peer.ssl(),
                         [](int, int, int type, const void* bytes, size_t, SSL*, void* count)
                         {
                             const bool update =
                                 type == SSL3_RT_HANDSHAKE &&
                                 *static_cast<const unsigned char*>(bytes) == SSL3_MT_KEY_UPDATE;
                             *static_cast<int*>(count) += update ? 1 : 0;
                         });
    SSL_set_msg_callback_arg(peer.ssl(), &updates);
    for (int i = 0; i < 10; ++i)
    {
        ASSERT_TRUE(eventually([this] { return send("y") == 1; }));
    }
    std::string arrived;
    while (arrived.size() < 10)
    {
        const std::string more = peer.read();
        ASSERT_FALSE(more.empty());
        arrived += more;
    }
    EXPECT_EQ(arrived, std::string(10, 'y'));
    EXPECT_EQ(updates, 3);
}

TEST_F(TlsStreamTest, OneThreadSendsWhileTheLoopReceives)
{
    serve();
    TlsPeer peer(far());
    ASSERT_TRUE(peer.connect());
    constexpr std::size_t total = 2000000;
    std::thread sender(
        [this]
        {
            const std::string bytes(5000, 'm');
            for (std::size_t sent = 0; sent < total;)
            {
                const std::string_view part = std::string_view(bytes).substr(0, total - sent);
                const ByteStream::Result result = stream_->send(&part, 1, false);
                if (result.status == Status::failed)
                {
                    return;
                }
                sent += result.count;
                if (result.count == 0)
                {
                    std::this_thread::yield();
                }
            }
        });
    std::size_t arrived = 0;
    std::size_t written = 0;
    while (arrived < total)
    {
        const std::string more = peer.read();
        if (more.empty())
        {
            break;
        }
        arrived += more.size();
        peer.write("report");
        written += 6;
    }
    sender.join();
    EXPECT_EQ(arrived, total);
    EXPECT_TRUE(eventually([&] { return received_ == written; }));
}

/// What a client with these options finds at a server with a self-signed certificate.
class TlsClientTest : public TlsStreamTest
{
protected:
    bool connects(const TlsContext::Client& options, const std::string& host)
    {
        std::string error;
        const auto clients = TlsContext::forClient(options, error);
        EXPECT_NE(clients, nullptr) << error;
        TlsStream client(std::move(sockets_.far), sockets_.peer, *clients, nullptr, host);
        const int flags = ::fcntl(client_, F_GETFL);
        ::fcntl(client_, F_SETFL, flags | O_NONBLOCK);
        serve();
        std::atomic<bool> established{false};
        std::atomic<bool> failed{false};
        client.watchSend(true);
        client.attach(loop_,
                      [&](std::uint32_t ready)
                      {
                          established = established || (ready & ByteStream::sendable) != 0;
                          failed = failed || (ready & ByteStream::hungUp) != 0;
                          client.watchSend(!established && !failed);
                          client.watchReceive(!failed);
                      });
        EXPECT_TRUE(eventually([&] { return established || failed; }));
        runOn(loop_, [&] { client.close(); });
        return established;
    }

    const int client_ = sockets_.far.get();
    const std::string certificate_ = test::tlsServerOptions().certificate;
};

TEST_F(TlsClientTest, AcceptsACertificateOfItsCaForTheHost)
{
    EXPECT_TRUE(connects({true, certificate_}, "localhost"));
}

TEST_F(TlsClientTest, AcceptsACertificateForTheAddress)
{
    EXPECT_TRUE(connects({true, certificate_}, "127.0.0.1"));
}

TEST_F(TlsClientTest, RefusesACertificateForAnotherHost)
{
    EXPECT_FALSE(connects({true, certificate_}, "elsewhere.example"));
}

TEST_F(TlsClientTest, RefusesACertificateForAnotherAddress)
{
    EXPECT_FALSE(connects({true, certificate_}, "192.0.2.1"));
}

TEST_F(TlsClientTest, RefusesACertificateOfAnUnknownCa)
{
    EXPECT_FALSE(connects({true, ""}, "localhost"));
}

TEST_F(TlsClientTest, AcceptsAnyCertificateWhenItDoesNotVerify)
{
    EXPECT_TRUE(connects({false, ""}, "elsewhere.example"));
}

}  // namespace
}  // namespace refhost
