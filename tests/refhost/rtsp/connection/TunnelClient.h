#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "refhost/base/Base64.h"
#include "refhost/net/tunnel/TunnelHeaders.h"
#include "tests/refhost/rtsp/connection/TestClient.h"

namespace refhost
{
namespace test
{

/// A client over one TCP connection that speaks anything.
class BareClient : public TestClient
{
public:
    using TestClient::TestClient;

    /// Bytes up to `end`, which they include; fewer when none come in time.
    std::string readUntil(const std::string& end)
    {
        std::string all;
        while (all.find(end) == std::string::npos)
        {
            const std::string more = wait(5000);
            if (more.empty())
            {
                return all;
            }
            all += more;
        }
        const std::size_t size = all.find(end) + end.size();
        rest_ = all.substr(size);
        return all.substr(0, size);
    }

    /// Everything until the server ends the connection.
    std::string readAll()
    {
        std::string all = std::exchange(rest_, {});
        while (!end_)
        {
            const std::string more = wait(5000);
            if (more.empty())
            {
                break;
            }
            all += more;
        }
        return all;
    }

    std::string waitSome(int milliseconds)
    {
        return wait(milliseconds);
    }

    bool sawEnd() const
    {
        return end_;
    }

protected:
    std::string wait(int milliseconds) override
    {
        return rest_.empty() ? TestClient::wait(milliseconds) : std::exchange(rest_, {});
    }

private:
    std::string rest_;  // received behind what readUntil() returned
};

/// An RTSP client through the HTTP tunnel, over two TCP connections.
class TunnelClient : public TestClient
{
public:
    /// Opens nothing yet.
    explicit TunnelClient(int port, std::string cookie = "0123456789abcdef")
        : port_(port), cookie_(std::move(cookie))
    {
    }

    std::string getText() const
    {
        return "GET /any/path?x=y HTTP/1.0\r\nUser-Agent: test\r\nx-sessioncookie: " + cookie_ +
               "\r\nAccept: application/x-rtsp-tunnelled\r\n\r\n";
    }

    std::string postText(std::size_t length) const
    {
        return "POST /any/path HTTP/1.0\r\nx-sessioncookie: " + cookie_ +
               "\r\nContent-Type: application/x-rtsp-tunnelled\r\nContent-Length: " + std::to_string(length) +
               "\r\n\r\n";
    }

    /// Sends the GET, and reads the response.
    void openGet()
    {
        get = std::make_unique<BareClient>(port_);
        get->send(getText());
        // The server sends nothing else before a request.
        EXPECT_EQ(get->readUntil("\r\n\r\n"), TunnelHeaders::greeting);
    }

    void openPost(std::size_t length = 32767)
    {
        post = std::make_unique<BareClient>(port_);
        post->send(postText(length));
    }

    static std::string encode(const std::string& bytes)
    {
        return base64Of(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }

    bool trySend(const std::string& bytes) override
    {
        if (postForEach)
        {
            const std::string text = encode(bytes);
            post = std::make_unique<BareClient>(port_);
            return post->trySend(postText(text.size()) + text);
        }
        return post->trySend(encode(bytes));
    }

    std::unique_ptr<BareClient> get;
    std::unique_ptr<BareClient> post;
    bool postForEach = false;  ///< a connection of its own for each request

protected:
    std::string wait(int milliseconds) override
    {
        std::string bytes = get->waitSome(milliseconds);
        end_ = get->sawEnd();
        return bytes;
    }

private:
    const int port_;
    const std::string cookie_;
};

}  // namespace test
}  // namespace refhost
