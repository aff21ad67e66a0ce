#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// Where a camera stream is sent to for everybody: an IPv4 multicast group, and the first of its ports. A
/// plain value.
struct MulticastGroup
{
    /// Tracks that one group carries: video and audio.
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

    /// Whether packets for the one would come to who listens to the other.
    bool overlaps(const MulticastGroup& other) const;

    bool operator==(const MulticastGroup& other) const
    {
        return address == other.address && port == other.port;
    }
};

/// What clients must be told of a stream that is sent to a group. A plain value.
struct MulticastDestination
{
    MulticastGroup group;
    int ttl = 1;
    std::string source{};  ///< the numeric address that packets leave from; empty where it is not known
};

/// A range of IPv4 multicast addresses. A plain value.
struct MulticastRange
{
    std::uint32_t first = 0;  ///< in the host's byte order
    std::uint32_t count = 0;

    /// Reads "239.255.42.0/24", or one address without a length. \returns nothing for what is not multicast
    /// whole
    static std::optional<MulticastRange> parse(std::string_view text);
};

}  // namespace refhost
