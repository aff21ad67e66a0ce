#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "refhost/base/Base64.h"
#include "refhost/net/tunnel/TunnelHeaders.h"
#include "refhost/net/tunnel/TunnelStream.h"
#include "tests/refhost/net/MemoryStream.h"
#include "tests/refhost/net/StreamUnderTest.h"

namespace refhost
{
namespace test
{

inline std::string base64(const std::string& bytes)
{
    return base64Of(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

/// A tunnel of two connections in memory, and the client's side of both.
class TunnelUnderTest : public StreamUnderTest
{
public:
    explicit TunnelUnderTest(std::size_t bytesAtOnce)
        : get(std::make_shared<MemoryStream>(bytesAtOnce)), post(std::make_shared<MemoryStream>(bytesAtOnce))
    {
        tunnel = std::make_shared<TunnelStream>(get, "c", nullptr, nullptr);
        stream = tunnel;
        TunnelStream::Post added{post, 32767, "", nullptr};
        EXPECT_TRUE(tunnel->addPost(added));
    }

    void write(const std::string& bytes) override
    {
        post->write(base64(bytes));
    }

    std::string read() override
    {
        std::string bytes = get->read(10000);
        if (greetingLeft_ != 0)
        {
            const std::string part = bytes.substr(0, greetingLeft_);
            EXPECT_EQ(part, TunnelHeaders::greeting.substr(TunnelHeaders::greeting.size() - greetingLeft_,
                                                           part.size()));
            greetingLeft_ -= part.size();
            bytes.erase(0, part.size());
            return bytes.empty() && !part.empty() ? read() : bytes;
        }
        return bytes;
    }

    void endWriting() override
    {
        post->endWriting();
        get->endWriting();
    }

    bool sawEnd() override
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!get->ended() && std::chrono::steady_clock::now() < deadline)
        {
            get->read(10);
        }
        return get->ended();
    }

    const std::shared_ptr<MemoryStream> get;
    const std::shared_ptr<MemoryStream> post;
    std::shared_ptr<TunnelStream> tunnel;

private:
    std::size_t greetingLeft_ = TunnelHeaders::greeting.size();
};

}  // namespace test
}  // namespace refhost
