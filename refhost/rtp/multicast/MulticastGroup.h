#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// The destination of a camera stream for all members: an IPv4 multicast group and its first port. A plain
/// value.
struct MulticastGroup
{
    /// Tracks of one group: video and audio.
    static constexpr int tracks = 2;
    /// Each track has an even port for RTP and the next for RTCP.
    static constexpr int ports = 2 * tracks;

    std::uint32_t address = 0;  ///< in the host's byte order
    int port = 0;               ///< even

    /// Reads "239.1.2.3:5004". \returns nothing for anything else, an odd port or one without room for all
    static std::optional<MulticastGroup> parse(std::string_view text);

    /// The RTP port of a track. \param track  0 to tracks - 1
    int portOf(int track) const
    {
        return port + 2 * track;
    }

    /// The address alone, "239.1.2.3".
    std::string addressText() const;

    /// Whether members of one would receive packets for the other.
    bool overlaps(const MulticastGroup& other) const;

    bool operator==(const MulticastGroup& other) const
    {
        return address == other.address && port == other.port;
    }
};

/// What clients need to know to receive a stream from a group. A plain value.
struct MulticastDestination
{
    MulticastGroup group;
    int ttl = 1;
    std::string source{};  ///< the numeric source address of the packets; empty if unknown
};

/// A range of IPv4 multicast addresses. A plain value.
struct MulticastRange
{
    std::uint32_t first = 0;  ///< in the host's byte order
    std::uint32_t count = 0;

    /// Reads "239.255.42.0/24", or one address without a length. \returns nothing unless all of it is
    /// multicast
    static std::optional<MulticastRange> parse(std::string_view text);
};

}  // namespace refhost
