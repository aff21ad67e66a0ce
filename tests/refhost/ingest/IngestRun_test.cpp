#include "refhost/ingest/IngestRun.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>

#include "refhost/base/Descriptor.h"
#include "refhost/net/TcpConnector.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

/// A camera that answers all requests alike, and counts its connections.
class StubbornCamera
{
public:
    explicit StubbornCamera(std::string answer)
        : answer_(std::move(answer)), port_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const SocketAddress any = *SocketAddress::parse("127.0.0.1");
        EXPECT_EQ(::bind(port_.get(), any.get(), any.size()), 0);
        EXPECT_EQ(::listen(port_.get(), 8), 0);
        thread_ = std::thread([this] { serve(); });
    }

    ~StubbornCamera()
    {
        ::shutdown(port_.get(), SHUT_RDWR);
        thread_.join();
    }

    StubbornCamera(const StubbornCamera&) = delete;
    StubbornCamera& operator=(const StubbornCamera&) = delete;

    std::string url() const
    {
        return "rtsp://guard:s3cret@" + SocketAddress::localOf(port_.get()).textWithPort() + "/live";
    }

    int connections() const
    {
        return connections_;
    }

private:
    void serve()
    {
        for (;;)
        {
            const Descriptor client(::accept4(port_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!client)
            {
                return;
            }
            ++connections_;
            char request[4096];
            // One request comes at a time.
            while (::recv(client.get(), request, sizeof request, 0) > 0)
            {
                (void)::send(client.get(), answer_.data(), answer_.size(), MSG_NOSIGNAL);
            }
        }
    }

    const std::string answer_;
    Descriptor port_;
    std::atomic<int> connections_{0};
    std::thread thread_;
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
        setup.events.ended = [ended](const std::string& reason) { ended->set_value(reason); };
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
