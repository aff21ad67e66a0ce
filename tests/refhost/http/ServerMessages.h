#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "tests/refhost/fragments/Boxes.h"
#include "tests/refhost/http/HttpTestClient.h"

namespace refhost
{
namespace test
{

/// The header fields of a WebSocket's handshake.
inline const std::string handshake =
    "Upgrade: websocket\r\nConnection: keep-alive, Upgrade\r\nSec-WebSocket-Version: 13\r\n"
    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";

/// The messages of one WebSocket connection, as its client sees them.
class ServerMessages
{
public:
    /// One message of the server.
    struct Message
    {
        int opcode = 0;
        std::string bytes;

        ByteSpan span() const
        {
            return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
        }
        nlohmann::json json() const
        {
            return nlohmann::json::parse(bytes);
        }
    };

    /// The next message; nothing when the connection ends.
    std::optional<Message> next(HttpTestClient& client)
    {
        const auto has = [&](std::size_t size)
        {
            while (received_.size() < size)
            {
                const std::string more = client.raw();
                if (more.empty())
                {
                    return false;
                }
                received_ += more;
            }
            return true;
        };
        if (!has(2))
        {
            return std::nullopt;
        }
        std::size_t size = static_cast<std::uint8_t>(received_[1]);
        std::size_t head = 2;
        for (const auto& [code, bytes] : {std::pair(126, 2), std::pair(127, 8)})
        {
            if (static_cast<int>(static_cast<std::uint8_t>(received_[1])) == code)
            {
                head += bytes;
                EXPECT_TRUE(has(head));
                size = Mp4Box::number({reinterpret_cast<const std::uint8_t*>(received_.data()), head}, 2,
                                      static_cast<std::size_t>(bytes));
            }
        }
        if (!has(head + size))
        {
            return std::nullopt;
        }
        const Message message{received_[0] & 0xf, received_.substr(head, size)};
        EXPECT_EQ(received_[0] & 0x80, 0x80) << "one frame";
        received_.erase(0, head + size);
        return message;
    }

    /// A masked frame of the client.
    static std::string masked(int opcode, const std::string& bytes)
    {
        std::string frame{
            static_cast<char>(0x80 | opcode), static_cast<char>(0x80 | bytes.size()), 1, 2, 3, 4};
        for (std::size_t i = 0; i < bytes.size(); ++i)
        {
            frame += static_cast<char>(bytes[i] ^ (1 + static_cast<int>(i % 4)));
        }
        return frame;
    }

private:
    std::string received_;
};

}  // namespace test
}  // namespace refhost
