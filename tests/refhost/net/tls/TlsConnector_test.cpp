#include "refhost/net/tls/TlsConnector.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/net/tls/CertificateFingerprint.h"
#include "refhost/net/tls/TlsStream.h"
#include "tests/refhost/net/tls/TlsPeer.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using test::makeTlsServer;
using test::tlsServerOptions;
using testing::HasSubstr;

struct Outcome
{
    std::unique_ptr<ByteStream> stream;
    std::string error;
};

/// A TCP port of loopback whose server is the test.
class TlsConnectorTest : public testing::Test
{
protected:
    TlsConnectorTest() : port_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const SocketAddress any = *SocketAddress::parse("127.0.0.1");
        EXPECT_EQ(::bind(port_.get(), any.get(), any.size()), 0);
        EXPECT_EQ(::listen(port_.get(), 8), 0);
    }

    ~TlsConnectorTest() override
    {
        runOn(loop_,
              [&]
              {
                  attempt_ = nullptr;
                  server_ = nullptr;
              });
    }

    std::unique_ptr<TlsConnector> connector(const TlsConnector::Trust& trust, const std::string& ca = "")
    {
        TlsContext::Client options;
        options.verify = false;
        options.ca = ca;
        std::string error;
        std::shared_ptr<TlsContext> context = TlsContext::forClient(options, error);
        EXPECT_NE(context, nullptr) << error;
        return std::make_unique<TlsConnector>(resolver_, context, trust);
    }

    std::future<Outcome> start(TlsConnector& connector, Duration timeout = bound,
                               const std::string& host = "127.0.0.1")
    {
        auto done = std::make_shared<std::promise<Outcome>>();
        runOn(loop_,
              [&]
              {
                  attempt_ = connector.connect(
                      loop_, host, SocketAddress::localOf(port_.get()).port(), timeout,
                      [this, done](std::unique_ptr<ByteStream> stream, const std::string& error)
                      {
                          EXPECT_TRUE(loop_.onLoopThread());
                          attempt_ = nullptr;
                          done->set_value({std::move(stream), error});
                      });
              });
        return done->get_future();
    }

    Descriptor accept()
    {
        return Descriptor(::accept4(port_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    }

    /// Connects to a TLS server.
    Outcome connect(const TlsConnector::Trust& trust, const std::string& host = "127.0.0.1",
                    const std::string& ca = "")
    {
        const auto made = connector(trust, ca);
        std::future<Outcome> outcome = start(*made, bound, host);
        // Not on the loop, which has to connect.
        pollfd arrival{port_.get(), POLLIN, 0};
        EXPECT_EQ(::poll(&arrival, 1, static_cast<int>(std::chrono::milliseconds(bound).count())), 1);
        runOn(loop_,
              [&]
              {
                  server_ = std::make_unique<TlsStream>(accept(), SocketAddress(), *context_);
                  server_->attach(loop_,
                                  [this](std::uint32_t ready)
                                  {
                                      char bytes[100];
                                      if ((ready & ByteStream::hungUp) != 0)
                                      {
                                          server_->close();
                                          return;
                                      }
                                      const ByteStream::Result result = server_->receive(bytes, sizeof bytes);
                                      received_ = received_ || result.count > 0;
                                      server_->watchReceive(result.status == ByteStream::Status::blocked);
                                  });
              });
        return take(outcome);
    }

    static Outcome take(std::future<Outcome>& outcome)
    {
        EXPECT_EQ(outcome.wait_for(2 * bound), std::future_status::ready);
        return outcome.get();
    }

    std::string fingerprint() const
    {
        return context_->fingerprint();
    }

    EventLoop loop_{"tls"};
    HostResolver resolver_;
    Descriptor port_;
    const std::unique_ptr<TlsContext> context_ = makeTlsServer();
    std::unique_ptr<StreamConnector::Attempt> attempt_;
    std::unique_ptr<TlsStream> server_;
    std::atomic<bool> received_{false};
};

TEST_F(TlsConnectorTest, TheCertificateOfThePinnedFingerprintIsTrusted)
{
    std::string plain = fingerprint();
    plain.erase(std::remove(plain.begin(), plain.end(), ':'), plain.end());
    std::string lower = fingerprint();
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; });
    for (const std::string& pinned : {fingerprint(), plain, lower})
    {
        ASSERT_TRUE(CertificateFingerprint::isValid(pinned));
        const Outcome outcome = connect({true, pinned});
        ASSERT_NE(outcome.stream, nullptr) << outcome.error;
        EXPECT_TRUE(outcome.stream->encrypted());
        EXPECT_EQ(outcome.stream->peer().text(), "127.0.0.1");
        runOn(loop_, [&] { outcome.stream->close(); });
    }
}

TEST_F(TlsConnectorTest, AnotherCertificateThanThePinnedOneIsRefusedBeforeAnythingIsSent)
{
    for (const bool verify : {false, true})
    {
        const Outcome outcome = connect({verify, std::string(64, '0')});
        EXPECT_EQ(outcome.stream, nullptr);
        EXPECT_THAT(outcome.error,
                    HasSubstr("its certificate (SHA-256 " + fingerprint() + ") is not the pinned one"));
        EXPECT_FALSE(received_);
    }
}

TEST_F(TlsConnectorTest, ACertificateOfNoKnownCaIsRefusedAndItsFingerprintIsNamed)
{
    const Outcome outcome = connect({});
    EXPECT_EQ(outcome.stream, nullptr);
    EXPECT_THAT(outcome.error, HasSubstr("its certificate (SHA-256 " + fingerprint() +
                                         ") is not trusted: self-signed certificate"));
}

TEST_F(TlsConnectorTest, ACertificateOfAKnownCaIsTrustedForItsHostAlone)
{
    const std::string ca = tlsServerOptions().certificate;
    const Outcome good = connect({}, "localhost", ca);
    EXPECT_NE(good.stream, nullptr) << good.error;
    runOn(loop_, [&] { good.stream->close(); });
    ::close(port_.release());
    port_ = Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const SocketAddress other = *SocketAddress::parse("127.0.0.99");
    ASSERT_EQ(::bind(port_.get(), other.get(), other.size()), 0);
    ASSERT_EQ(::listen(port_.get(), 8), 0);
    const Outcome wrong = connect({}, "127.0.0.99", ca);
    EXPECT_EQ(wrong.stream, nullptr);
    EXPECT_THAT(wrong.error, HasSubstr(") is not trusted: IP address mismatch"));
}

TEST_F(TlsConnectorTest, EveryCertificateIsTrustedWithoutVerification)
{
    const Outcome outcome = connect({false, ""});
    ASSERT_NE(outcome.stream, nullptr) << outcome.error;
    runOn(loop_, [&] { outcome.stream->close(); });
}

TEST_F(TlsConnectorTest, AServerThatDoesNotAnswerIsLeftAtTheDeadline)
{
    const auto made = connector({});
    std::future<Outcome> outcome = start(*made, 100ms);
    const Descriptor server = accept();
    const Outcome ended = take(outcome);
    EXPECT_EQ(ended.stream, nullptr);
    EXPECT_THAT(ended.error, HasSubstr("the TLS handshake takes too long"));
}

TEST_F(TlsConnectorTest, WhatIsNoTlsFails)
{
    const std::pair<const char*, std::string> cases[] = {
        {"plain RTSP", "RTSP/1.0 400 Bad Request\r\n\r\n"},
        {"zeros", std::string(100, '\0')},
        {"a record beyond the bound", std::string("\x16\x03\x03\xff\xff", 5) + std::string(70'000, 'x')},
        {"a handshake message beyond the bound",
         std::string("\x16\x03\x03\x00\x04\x02\xff\xff\xff", 9) + std::string(20'000, 'x')},
        {"an empty record", std::string("\x16\x03\x03\x00\x00", 5)},
        {"an alert", std::string("\x15\x03\x03\x00\x02\x02\x28", 7)},
        {"application data", std::string("\x17\x03\x03\x00\x02xx", 7)},
        {"half a record", std::string("\x16\x03\x03\x10\x00\x02\x00", 7)},
        {"nothing", ""},
    };
    // One for all: the sanitizers take seconds to read the system's CAs.
    const auto made = connector({false, ""});
    for (const auto& [name, bytes] : cases)
    {
        std::future<Outcome> outcome = start(*made);
        {
            const Descriptor server = accept();
            (void)::send(server.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            ::shutdown(server.get(), SHUT_WR);
            const Outcome ended = take(outcome);
            EXPECT_EQ(ended.stream, nullptr) << name;
            EXPECT_THAT(ended.error, HasSubstr("the TLS handshake failed")) << name;
        }
    }
}

TEST_F(TlsConnectorTest, AnAttemptCanBeGivenUpDuringTheHandshake)
{
    const auto made = connector({});
    std::future<Outcome> outcome = start(*made);
    const Descriptor server = accept();
    runOn(loop_, [&] { attempt_ = nullptr; });
    EXPECT_THROW(outcome.get(), std::future_error) << "nobody reports any more";
}

TEST(CertificateFingerprintTest, HasSixtyFourDigits)
{
    EXPECT_TRUE(CertificateFingerprint::isValid(std::string(64, 'a')));
    for (const std::string& text : {std::string(), std::string(63, 'a'), std::string(65, 'a'),
                                    std::string(64, 'g'), std::string(64, ':'), std::string(63, 'a') + " "})
    {
        EXPECT_FALSE(CertificateFingerprint::isValid(text)) << text;
    }
}

}  // namespace
}  // namespace refhost
