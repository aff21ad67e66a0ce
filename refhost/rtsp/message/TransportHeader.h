#pragma once

#include <optional>
#include <string_view>

namespace refhost
{

/// One transport of delivery that a client offers and that this server can do.
struct TransportChoice
{
    bool interleaved = false;  ///< inside the RTSP connection; otherwise UDP
    bool multicast = false;    ///< to a group, whose address and ports the server tells
    int rtpPort = 0;           ///< the client's UDP ports, TransportHeader::minPort to 65535
    int rtcpPort = 0;
    int rtpChannel = -1;  ///< 0 to 255; -1: the server assigns both
    int rtcpChannel = -1;
};

/// The Transport header of SETUP (RFC 2326, section 12.39).
///
/// Parsed by hand and not with gst_rtsp_transport_parse(): that one takes "client_port=a-b" and
/// "client_port=3-2" for good and warns on the program's error output of every parameter that it does not
/// know, which lets clients fill the log.
class TransportHeader
{
public:
    /// Ports below belong to services of the client's machine, which nobody asked for a stream.
    static constexpr int minPort = 1024;

    /// Picks the first acceptable choice of a list: profile RTP/AVP, to play, over UDP unicast with one or
    /// two client ports, or interleaved with the client's channels or none named. Other profiles,
    /// "mode=record" and malformed choices are passed over; unknown parameters are ignored. Where one port or
    /// channel is named, RTCP has the next.
    /// \param multicast  whether the presentation is sent to a group: then UDP multicast alone is acceptable,
    ///                   which is also what a choice means that names no client port; otherwise it is passed
    ///                   over. Address, ports and TTL that a client requests are ignored
    /// \param serverPort  the server's own UDP port of RTP, RTCP has the next; a choice that names one of
    ///                    them is passed over, because the server must not send to itself. 0: it has none
    /// \returns nothing when no choice is acceptable
    static std::optional<TransportChoice> choose(std::string_view value, bool multicast, int serverPort = 0);
};

}  // namespace refhost
