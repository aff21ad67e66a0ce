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
#include "refhost/capture/CameraCondition.h"
#include "refhost/net/TcpConnector.h"
#include "tests/CapturedErrors.h"
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
        return failureOf(location).text;
    }

    SourceFailure failureOf(const std::string& location)
    {
        auto ended = std::make_shared<std::promise<SourceFailure>>();
        std::future<SourceFailure> why = ended->get_future();
        SourceRun::Setup setup;
        setup.config.source.kind = SourceConfig::Kind::rtsp;
        setup.config.source.location = location;
        setup.title = "test";
        setup.mediaTap = std::make_shared<MediaTap>();
        setup.events.ended = [ended](const SourceFailure& reason) { ended->set_value(reason); };
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

/// The port of `url`, which names it last before the path.
std::string peerIn(const std::string& url)
{
    const std::size_t host = url.rfind('@') == std::string::npos ? url.find("//") + 2 : url.rfind('@') + 1;
    return url.substr(host, url.find('/', host) - host);
}

std::string described(const std::string& sdp)
{
    return "RTSP/1.0 200 OK\r\nContent-Type: application/sdp\r\nContent-Length: " +
           std::to_string(sdp.size()) + "\r\n\r\n" + sdp;
}

TEST_F(IngestRunTest, EachFaultIsOneLineThatNamesHostPortAndCause)
{
    const std::string unauthorized =
        "RTSP/1.0 401 Unauthorized\r\nWWW-Authenticate: Digest realm=\"cam\", nonce=\"n1\"\r\n\r\n";
    // What the camera answers, and the line after `camera 2/0 "yard": ` with {} for host and port.
    const std::vector<std::pair<std::string, std::string>> faults{
        {unauthorized, "refused: {}: wrong password or user name"},
        {"RTSP/1.0 404 Not Found\r\n\r\n", "refused: {}: the camera answered DESCRIBE with 404 Not Found"},
        {"RTSP/1.0 503 Service Unavailable\r\n\r\n",
         "refused: {}: the camera answered DESCRIBE with 503 Service Unavailable"},
        {"RTSP/1.0 500 Internal Server Error\r\n\r\n",
         "failed: {}: the camera answered DESCRIBE with 500 Internal Server Error"},
        {"HTTP/1.1 400 Bad Request\r\n\r\n", "failed: {}: the camera sends what is not RTSP"},
        {described("v=0\r\n"), "failed: {}: the camera describes no track"},
        {described("v=0\r\nm=application 0 RTP/AVP 107\r\na=rtpmap:107 vnd.onvif.metadata/90000\r\n"),
         "failed: {}: no H.264 and no PCMU in the description, which has vnd.onvif.metadata"},
    };
    const auto lineFor = [this](const std::string& url)
    {
        const SourceFailure failure = failureOf(url);
        CapturedErrors errors;
        CameraStates states;
        CameraCondition condition(states, {2, 0}, "camera 2/0 \"yard\"");
        condition.onStart();
        condition.onFailure(failure);
        EXPECT_TRUE(errors.linesWith("s3cret").empty());
        const std::vector<std::string> lines = errors.linesWith(" warning ");
        return lines.size() == 1 ? lines[0].substr(lines[0].find("camera 2/0")) : "no line";
    };
    for (const auto& [answer, expected] : faults)
    {
        const StubbornCamera camera(answer);
        std::string text = "camera 2/0 \"yard\": " + expected;
        const std::size_t peer = text.find("{}");
        EXPECT_EQ(lineFor(camera.url()), text.replace(peer, 2, peerIn(camera.url())));
        pauses_.notePlaying(camera.url());
    }
    std::string refusing;
    {
        const StubbornCamera gone("");
        refusing = gone.url();
    }
    EXPECT_EQ(lineFor(refusing),
              "camera 2/0 \"yard\": unreachable: connection refused by " + peerIn(refusing));
}

TEST_F(IngestRunTest, APasswordThatIsRefusedIsNotSentWithEveryStart)
{
    const StubbornCamera camera(
        "RTSP/1.0 401 Unauthorized\r\nWWW-Authenticate: Digest realm=\"cam\", nonce=\"n1\"\r\n\r\n");
    const std::string refusal = peerIn(camera.url()) + ": wrong password or user name";
    EXPECT_EQ(runOnce(camera.url()), refusal);
    EXPECT_EQ(runOnce(camera.url()).rfind(refusal + "; it is asked again in ", 0), 0U);
    EXPECT_EQ(runOnce(camera.url() + "/another/stream").rfind(refusal + "; ", 0), 0U);
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
    const std::string refusal =
        peerIn(camera.url()) + ": the camera answered DESCRIBE with 503 Service Unavailable";
    EXPECT_EQ(runOnce(camera.url()), refusal);
    EXPECT_EQ(runOnce(camera.url()).rfind(refusal + "; it is", 0), 0U);
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
