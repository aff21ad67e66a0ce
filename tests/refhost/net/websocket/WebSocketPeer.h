#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace refhost
{
namespace test
{

/// The client's side of WebSocket's frames, by hand.
class WebSocketPeer
{
public:
    static constexpr int continuation = 0;
    static constexpr int text = 1;
    static constexpr int binary = 2;
    static constexpr int close = 8;
    static constexpr int ping = 9;
    static constexpr int pong = 10;

    struct Frame
    {
        int opcode = 0;
        std::string payload;
        bool final = true;
        bool masked = true;
        int reserved = 0;
    };

    /// A frame of the server.
    struct Arrived
    {
        int opcode;
        std::string payload;
    };

    static std::string frame(int opcode, const std::string& payload)
    {
        return bytesOf({opcode, payload});
    }

    static std::string bytesOf(const Frame& frame)
    {
        static constexpr std::array<char, 4> key{'\x11', '\x7f', '\x00', '\xa5'};
        std::string out;
        out += static_cast<char>((frame.final ? 0x80 : 0) | frame.reserved << 4 | frame.opcode);
        out += header(frame.payload.size(), frame.masked);
        if (!frame.masked)
        {
            return out + frame.payload;
        }
        out.append(key.data(), key.size());
        for (std::size_t i = 0; i < frame.payload.size(); ++i)
        {
            out += static_cast<char>(frame.payload[i] ^ key[i % key.size()]);
        }
        return out;
    }

    /// Cuts the first frame off the server's bytes; nothing while it is not whole, or is masked.
    static std::optional<Arrived> cut(std::string& bytes)
    {
        const auto byte = [&bytes](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
        if (bytes.size() < 2 || (byte(1) & 0x80U) != 0)
        {
            return std::nullopt;
        }
        std::size_t size = byte(1);
        const std::size_t extended = size == 127 ? 8 : size == 126 ? 2 : 0;
        if (bytes.size() < 2 + extended)
        {
            return std::nullopt;
        }
        for (std::size_t i = 0; i < extended; ++i)
        {
            size = (i == 0 ? 0 : size << 8U) | byte(2 + i);
        }
        if (bytes.size() < 2 + extended + size)
        {
            return std::nullopt;
        }
        Arrived arrived{byte(0) & 0x0f, bytes.substr(2 + extended, size)};
        bytes.erase(0, 2 + extended + size);
        return arrived;
    }

private:
    static std::string header(std::size_t size, bool masked)
    {
        const std::size_t extended = size > 0xffff ? 8 : size > 125 ? 2 : 0;
        std::string out(1, static_cast<char>((masked ? 0x80 : 0) | static_cast<int>(extended == 8   ? 127
                                                                                    : extended == 2 ? 126
                                                                                                    : size)));
        for (std::size_t i = extended; i-- > 0;)
        {
            out += static_cast<char>(static_cast<std::uint64_t>(size) >> (8 * i) & 0xffU);
        }
        return out;
    }
};

}  // namespace test
}  // namespace refhost
