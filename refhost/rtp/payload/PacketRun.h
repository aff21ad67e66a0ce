#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/media/AccessUnit.h"
#include "refhost/media/ByteSpan.h"

namespace refhost
{

/// The RTP packets of one access unit while they are gathered. Threads: one at a time.
class PacketRun
{
public:
    /// Room is made for that much at the first packet, so that most units need not grow.
    void expect(std::size_t bytes, std::size_t packets);

    /// Adds a packet whose payload is `head` and `body`, one of which may be empty.
    void add(ByteSpan head, ByteSpan body);

    /// Adds packets with these payloads in front of all others.
    void putInFront(const std::vector<std::vector<std::uint8_t>>& payloads);

    /// Takes the packets from number `from` on out again, which may be none.
    void cut(std::size_t from);

    /// Requires: there is a packet.
    std::uint8_t* lastPayload();

    /// Writes the headers and gives the unit away, without much unused memory; the run is empty then.
    /// \param marker  of the last packet
    /// \returns null when there is no packet
    std::shared_ptr<AccessUnit> finish(std::uint32_t rtpTimestamp, bool marker);

    void clear();

    bool empty() const
    {
        return !unit_;
    }

    std::size_t packets() const
    {
        return unit_ ? unit_->packets.size() : 0;
    }

    /// Of the packets with all their headers.
    std::size_t bytes() const
    {
        return unit_ ? unit_->bytes.size() : 0;
    }

    /// Bytes of payload of the largest packet.
    std::uint32_t maxPayload() const
    {
        return maxPayload_;
    }

private:
    std::shared_ptr<AccessUnit> unit_;  ///< null before the first packet
    std::size_t expectedBytes_ = 0;
    std::size_t expectedPackets_ = 0;
    std::uint32_t maxPayload_ = 0;
};

}  // namespace refhost
