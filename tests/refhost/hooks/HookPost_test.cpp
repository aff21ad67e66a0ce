#include "refhost/hooks/HookPost.h"

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <future>
#include <thread>

#include "refhost/base/SocketAddress.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;

/// A server of one connection that answers `answer` to a whole request; an empty one is no answer.
class Receiver
{
public:
    explicit Receiver(std::string answer)
        : answer_(std::move(answer)), port_(::socket(AF_INET, SOCK_STREAM, 0))
    {
        const SocketAddress any = *SocketAddress::parse("127.0.0.1");
        EXPECT_EQ(::bind(port_.get(), any.get(), any.size()), 0);
        EXPECT_EQ(::listen(port_.get(), 1), 0);
        thread_ = std::thread([this] { run(); });
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver()
    {
        join();
    }

    std::string url() const
    {
        return "http://" + SocketAddress::localOf(port_.get()).textWithPort() + "/hook";
    }

    std::string request()
    {
        join();
        return request_;
    }

private:
    void join()
    {
        if (thread_.joinable())
        {
            ::shutdown(port_.get(), SHUT_RDWR);
            thread_.join();
        }
    }

    void run()
    {
        const Descriptor client(::accept(port_.get(), nullptr, nullptr));
        char bytes[4096];
        ssize_t count = client ? ::recv(client.get(), bytes, sizeof bytes, 0) : 0;
        while (count > 0)
        {
            request_.append(bytes, static_cast<std::size_t>(count));
            if (!answer_.empty() && request_.find("}\n") != std::string::npos)
            {
                (void)!::send(client.get(), answer_.data(), answer_.size(), MSG_NOSIGNAL);
                return;
            }
            count = ::recv(client.get(), bytes, sizeof bytes, 0);
        }
    }

    const std::string answer_;
    const Descriptor port_;
    std::string request_;
    std::thread thread_;
};

class HookPostTest : public testing::Test
{
protected:
    HookOutcome post(const std::string& url, std::chrono::milliseconds time = 20s)
    {
        return HookPost::run(url, "{\"hook\":\"on-camera-up\"}\n", HookStop::Clock::now() + time, stop);
    }

    HookStop stop;
};

TEST_F(HookPostTest, UrlsAreOfHttp)
{
    EXPECT_TRUE(HookPost::isUrl("http://example/"));
    EXPECT_TRUE(HookPost::isUrl("https://example/"));
    EXPECT_FALSE(HookPost::isUrl("httpd"));
    EXPECT_FALSE(HookPost::isUrl("curl http://example/"));
    EXPECT_FALSE(HookPost::isUrl("file:///etc/passwd"));
}

TEST_F(HookPostTest, PostsJson)
{
    Receiver receiver("HTTP/1.1 204 No Content\r\n\r\n");
    const HookOutcome outcome = post(receiver.url());
    EXPECT_TRUE(outcome.done) << outcome.text;
    const std::string request = receiver.request();
    EXPECT_THAT(request, HasSubstr("POST /hook HTTP/1.1\r\n"));
    EXPECT_THAT(request, HasSubstr("Content-Type: application/json\r\n"));
    EXPECT_THAT(request, HasSubstr("\r\n\r\n{\"hook\":\"on-camera-up\"}\n"));
}

TEST_F(HookPostTest, OtherStatusFails)
{
    Receiver receiver("HTTP/1.1 302 Found\r\nLocation: http://192.0.2.1/\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(post(receiver.url()).text, "status 302");
}

TEST_F(HookPostTest, UrlThatNeverAnswersIsGivenUp)
{
    Receiver receiver("");
    EXPECT_EQ(post(receiver.url(), 200ms).text, "no answer in time");
}

TEST_F(HookPostTest, StopEndsARequest)
{
    Receiver receiver("");
    stop.stop();
    EXPECT_EQ(post(receiver.url()).text, "the server ends");
}

TEST_F(HookPostTest, LongAnswerIsGivenUp)
{
    Receiver receiver("HTTP/1.1 200 OK\r\n\r\n" + std::string(2 * HookPost::maxAnswer, 'x'));
    EXPECT_EQ(post(receiver.url()).text, "the answer is too long");
}

}  // namespace
}  // namespace refhost
