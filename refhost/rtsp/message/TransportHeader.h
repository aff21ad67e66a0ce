#pragma once

#include <functional>
#include <optional>
#include <string_view>

namespace refhost
{

/// One transport that a client offers and this server supports.
struct TransportChoice
{
    bool interleaved = false;  ///< inside the RTSP connection; otherwise UDP
    bool multicast = false;    ///< to a group, whose address and ports the server chooses
    bool secure = false;       ///< profile RTP/SAVP: SRTP
    int rtpPort = 0;           ///< the client's UDP ports, TransportHeader::minPort to 65535
    int rtcpPort = 0;
    int rtpChannel = -1;  ///< 0 to 255; -1: the server assigns both
    int rtcpChannel = -1;
};

/// The Transport header of SETUP (RFC 2326, section 12.39).
///
/// Parsed by hand and not with gst_rtsp_transport_parse(): that one takes "client_port=a-b" and
/// "client_port=3-2", and warns about every unknown parameter on standard error, which lets clients fill the
/// log.
class TransportHeader
{
public:
    /// Lower ports belong to services that did not request a stream.
    static constexpr int minPort = 1024;

    /// Whether a choice is allowed; may change the profile that it stands for.
    using Admit = std::function<bool(TransportChoice& choice)>;

    /// Picks the first acceptable choice of a list: profile RTP/AVP or RTP/SAVP, to play, over UDP unicast with one or
    /// two client ports, or interleaved with or without named channels. Skips other profiles, "mode=record"
    /// and malformed choices; ignores unknown parameters. If one port or channel is named, RTCP has the next.
    /// \param multicast  whether the presentation is sent to a group. If so, only UDP multicast is
    ///                   acceptable, which a choice without client ports means too; if not, multicast is
    ///                   skipped. Address, ports and TTL requested by clients are ignored
    /// \param serverPort  the server's UDP port of RTP; RTCP has the next. Skips a choice with one of them,
    ///                    because the server must not send to itself. 0: none
    /// \param admit  skips a choice that is not allowed; empty: all are
    /// \returns nothing when no choice is acceptable
    static std::optional<TransportChoice> choose(std::string_view value, bool multicast, int serverPort = 0,
                                                 const Admit& admit = {});
};

}  // namespace refhost
