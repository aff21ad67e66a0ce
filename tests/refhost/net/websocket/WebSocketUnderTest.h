#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "refhost/net/websocket/WebSocketStream.h"
#include "tests/refhost/net/MemoryStream.h"
#include "tests/refhost/net/StreamUnderTest.h"
#include "tests/refhost/net/websocket/WebSocketPeer.h"

namespace refhost
{
namespace test
{

/// A WebSocket stream over memory, and its client.
class WebSocketUnderTest : public StreamUnderTest
{
public:
    static constexpr const char* response = "101";

    explicit WebSocketUnderTest(std::size_t bytesAtOnce, const std::string& received = "")
        : carrier(std::make_shared<MemoryStream>(bytesAtOnce))
    {
        stream = std::make_shared<WebSocketStream>(carrier, response, received);
    }

    void write(const std::string& bytes) override
    {
        carrier->write(WebSocketPeer::frame(WebSocketPeer::binary, bytes));
    }

    std::string read() override
    {
        const auto frame = next();
        return frame && frame->opcode == WebSocketPeer::binary ? frame->payload : "";
    }

    /// The next frame; nothing when none comes in time.
    std::optional<WebSocketPeer::Arrived> next()
    {
        for (;;)
        {
            if (!switched_ && bytes_.size() >= 3)
            {
                EXPECT_EQ(bytes_.substr(0, 3), response);
                bytes_.erase(0, 3);
                switched_ = true;
            }
            if (auto frame = switched_ ? WebSocketPeer::cut(bytes_) : std::nullopt)
            {
                return frame;
            }
            const std::string more = carrier->read(10000);
            if (more.empty())
            {
                return std::nullopt;
            }
            bytes_ += more;
        }
    }

    void endWriting() override
    {
        carrier->write(WebSocketPeer::frame(WebSocketPeer::close, ""));
    }

    bool sawEnd() override
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!carrier->ended() && std::chrono::steady_clock::now() < deadline)
        {
            carrier->read(10);
        }
        return carrier->ended();
    }

    const std::shared_ptr<MemoryStream> carrier;

private:
    std::string bytes_;
    bool switched_ = false;
};

}  // namespace test
}  // namespace refhost
