#include "refhost/ingest/IngestRun.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>

#include "refhost/base/Descriptor.h"
#include "refhost/net/TcpConnector.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

/// A TCP port of loopback, whose connections are served one after the other on a thread.
class ServedPort
{
public:
    explicit ServedPort(std::function<void(int client)> serve)
        : serve_(std::move(serve)), port_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const SocketAddress any = *SocketAddress::parse("127.0.0.1");
        EXPECT_EQ(::bind(port_.get(), any.get(), any.size()), 0);
        EXPECT_EQ(::listen(port_.get(), 8), 0);
        thread_ = std::thread([this] { run(); });
    }

    ~ServedPort()
    {
        ::shutdown(port_.get(), SHUT_RDWR);
        thread_.join();
    }

    ServedPort(const ServedPort&) = delete;
    ServedPort& operator=(const ServedPort&) = delete;

    /// Address and port.
    std::string text() const
    {
        return SocketAddress::localOf(port_.get()).textWithPort();
    }

private:
    void run()
    {
        for (;;)
        {
            const Descriptor client(::accept4(port_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!client)
            {
                return;
            }
            serve_(client.get());
        }
    }

    const std::function<void(int client)> serve_;
    Descriptor port_;
    std::thread thread_;
};

/// A camera that answers all requests alike, and counts its connections.
class StubbornCamera
{
public:
    explicit StubbornCamera(std::string answer) : answer_(std::move(answer)) {}

    std::string url() const
    {
        return "rtsp://guard:s3cret@" + port_.text() + "/live";
    }

    int connections() const
    {
        return connections_;
    }

private:
    void serve(int client)
    {
        ++connections_;
        char request[4096];
        // One request comes at a time.
        while (::recv(client, request, sizeof request, 0) > 0)
        {
            (void)::send(client, answer_.data(), answer_.size(), MSG_NOSIGNAL);
        }
    }

    const std::string answer_;
    std::atomic<int> connections_{0};
    const ServedPort port_{[this](int client) { serve(client); }};  // last: its thread uses the rest
};

/// A camera with audio that has room for one client at a time, and sends over UDP whatever it is asked for.
class WilfulCamera
{
public:
    std::string url() const
    {
        return "rtsp://" + port_.text() + "/live";
    }

    /// The methods of all requests.
    std::string methods()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return methods_;
    }

private:
    void serve(int client)
    {
        std::string text;
        char bytes[4096];
        for (ssize_t count = 1; count > 0;)
        {
            count = ::recv(client, bytes, sizeof bytes, 0);
            text.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
            for (std::size_t end = text.find("\r\n\r\n"); end != std::string::npos;
                 end = text.find("\r\n\r\n"))
            {
                const std::string answer = answerTo(text.substr(0, end));
                text.erase(0, end + 4);
                (void)::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
            }
        }
    }

    std::string answerTo(const std::string& request)
    {
        const std::string method = request.substr(0, request.find(' '));
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            methods_ += method + " ";
        }
        const std::string answer = "RTSP/1.0 200 OK\r\nSession: 1\r\n";
        if (method == "DESCRIBE")
        {
            const std::string description = "v=0\r\nm=audio 0 RTP/AVP 0\r\na=control:audio\r\n";
            return answer + "Content-Length: " + std::to_string(description.size()) + "\r\n\r\n" +
                   description;
        }
        return answer + (method == "SETUP" ? "Transport: RTP/AVP;unicast\r\n\r\n" : "\r\n");
    }

    std::mutex mutex_;
    std::string methods_;
    const ServedPort port_{[this](int client) { serve(client); }};  // last: its thread uses the rest
};

class IngestRunTest : public testing::Test
{
protected:
    /// Reads the camera until the run ends by itself. \returns why
    std::string runOnce(const std::string& location)
    {
        auto ended = std::make_shared<std::promise<std::string>>();
        std::future<std::string> why = ended->get_future();
        SourceRun::Setup setup;
        setup.config.source.kind = SourceConfig::Kind::rtsp;
        setup.config.source.location = location;
        setup.title = "test";
        setup.mediaTap = std::make_shared<MediaTap>();
        setup.events.ended = [ended](const SourceFailure& reason) { ended->set_value(reason.text); };
        IngestRun run(std::move(setup), loop_, connector_, pauses_, Duration::zero());
        EXPECT_EQ(why.wait_for(bound), std::future_status::ready);
        run.stop();
        EXPECT_TRUE(run.awaitEnd(std::chrono::steady_clock::now() + bound));
        return why.get();
    }

    HostResolver resolver_;
    const std::shared_ptr<StreamConnector> connector_ = std::make_shared<TcpConnector>(resolver_);
    CameraPauses pauses_;
    EventLoop loop_{"ingest"};
};

TEST_F(IngestRunTest, APasswordThatIsRefusedIsNotSentWithEveryStart)
{
    const StubbornCamera camera(
        "RTSP/1.0 401 Unauthorized\r\nWWW-Authenticate: Digest realm=\"cam\", nonce=\"n1\"\r\n\r\n");
    EXPECT_EQ(runOnce(camera.url()), "the camera refuses the login");
    EXPECT_EQ(runOnce(camera.url()).rfind("the camera refuses the login; it is asked again in ", 0), 0U);
    EXPECT_EQ(runOnce(camera.url() + "/another/stream").rfind("the camera refuses the login; ", 0), 0U);
    EXPECT_EQ(camera.connections(), 1);
}

TEST_F(IngestRunTest, ACameraThatChoosesUdpByItselfIsAskedForItOnceItsSessionHasEnded)
{
    WilfulCamera camera;
    std::promise<void> described;
    SourceRun::Setup setup;
    setup.config.source.kind = SourceConfig::Kind::rtsp;
    setup.config.source.location = camera.url();
    setup.config.videoCodec = std::nullopt;
    setup.title = "test";
    setup.mediaTap = std::make_shared<MediaTap>();
    setup.events.described = [&described] { described.set_value(); };
    IngestRun run(std::move(setup), loop_, connector_, pauses_, Duration::zero());
    EXPECT_EQ(described.get_future().wait_for(bound), std::future_status::ready);
    run.stop();
    EXPECT_TRUE(run.awaitEnd(std::chrono::steady_clock::now() + bound));
    EXPECT_EQ(camera.methods(), "OPTIONS DESCRIBE SETUP TEARDOWN OPTIONS DESCRIBE SETUP PLAY TEARDOWN ");
}

TEST_F(IngestRunTest, ACameraThatAsksForAPauseGetsIt)
{
    const StubbornCamera camera("RTSP/1.0 503 Service Unavailable\r\nRetry-After: 60\r\n\r\n");
    EXPECT_EQ(runOnce(camera.url()), "the camera answered DESCRIBE with 503 Service Unavailable");
    EXPECT_EQ(
        runOnce(camera.url()).rfind("the camera answered DESCRIBE with 503 Service Unavailable; it is", 0),
        0U);
    EXPECT_EQ(camera.connections(), 1);
}

TEST_F(IngestRunTest, ACameraThatIsBusyIsAskedAgainAtOnceUnlessItSaysWhen)
{
    const StubbornCamera camera("RTSP/1.0 503 Service Unavailable\r\n\r\n");
    runOnce(camera.url());
    runOnce(camera.url());
    EXPECT_EQ(camera.connections(), 2);
}

}  // namespace
}  // namespace refhost
