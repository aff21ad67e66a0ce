#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "refhost/capture/CameraMessages.h"

namespace refhost
{

/// Cuts what a camera sends over its RTSP connection into messages and interleaved packets (RFC 2326, sections 4
/// and 10.12). Packets stay where they were received; memory follows what comes at once, within limits.
///
/// Sloppy cameras: lines may end by LF alone; empty lines may stand between messages; the body of a description
/// may come without Content-Length, and beyond it.
///
/// Threads: one at a time.
class CameraReceiver
{
public:
    static constexpr std::size_t firstRoom = 16384;  ///< bytes that are received at once at first
    static constexpr std::size_t maxRoom = 67584;    ///< and at most: a whole packet
    /// Of lines that belong to nothing, in the life of a connection.
    static constexpr std::size_t maxSkippedBytes = 8192;

    enum class Next
    {
        incomplete,  ///< more bytes are needed
        message,
        packet,
        /// A description without Content-Length: it ends with endBody(), or with what follows it.
        openBody,
        broken  ///< neither a message nor a packet, or beyond a limit: the rest cannot be read
    };

    struct Room
    {
        char* bytes;
        std::size_t size;  ///< at least 1
    };

    /// Where to receive the next bytes. Requires: next() said incomplete or openBody, or was not called yet.
    Room room();
    /// \param count  of bytes that stand in the room now
    void received(std::size_t count);

    /// Takes the next whole message or packet.
    Next next();
    /// Takes the message whose body is open, with what came of it. Requires: next() said openBody.
    void endBody();

    /// The message that next() or endBody() took; until the next call of next().
    CameraMessage& message()
    {
        return message_;
    }

    /// The packet that next() took, 1 to 65535 bytes; until the next call of next() or room().
    int channel() const
    {
        return channel_;
    }
    const std::uint8_t* packet() const
    {
        return packet_;
    }
    std::size_t packetSize() const
    {
        return packetSize_;
    }

    /// Bytes of memory that are held.
    std::size_t capacity() const
    {
        return capacity_;
    }

private:
    static constexpr std::size_t unknown = SIZE_MAX;

    std::string_view left() const;
    Next takePacket();
    Next takeMessage();
    Next takeHead();
    Next takeBody();
    Next findBodyEnd();
    Next skipLine(std::string_view text);
    void finishMessage(std::size_t bodySize);
    void move(std::size_t capacity);

    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;    ///< what stands before is done
    std::size_t end_ = 0;      ///< what was received
    std::size_t needed_ = 0;   ///< from begin_ on, for what is not whole yet; 0 when that is not known
    std::size_t scanned_ = 0;  ///< from begin_ on: bytes that need not be looked at again
    bool filled_ = false;      ///< the last room was too small for what was there
    bool inBody_ = false;      ///< the head of message_ is read
    std::size_t bodySize_ = 0;
    std::size_t skipped_ = 0;
    CameraMessage message_;
    int channel_ = 0;
    const std::uint8_t* packet_ = nullptr;
    std::size_t packetSize_ = 0;
};

}  // namespace refhost
