#pragma once
// Tested by tests/refhost/rtsp/session/SessionMethods_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "refhost/rtsp/message/ResponseWriter.h"
#include "refhost/rtsp/message/RtspRequest.h"
#include "refhost/rtsp/message/TransportHeader.h"
#include "refhost/rtsp/session/ClientConnection.h"
#include "refhost/rtsp/session/InterleavedChannels.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/rtsp/session/RtspSession.h"

namespace refhost
{

/// The ways to the client that SETUP makes on one connection, and what its answer tells of them.
/// Threads: the connection's; `services` and `connection` outlive it.
class TrackDeliveries
{
public:
    TrackDeliveries(RtspServices& services, ClientConnection& connection);

    /// \param multicast  whether the presentation is sent to a group
    /// \returns the first choice of the request's Transport headers that this server can do
    std::optional<TransportChoice> choose(const RtspRequest& request, bool multicast) const;

    /// Makes the transport of one track of `session`.
    /// \param trackId    as the request names it: empty for the only track
    /// \param[out] text  the answer's Transport header so far, for answer()
    /// \returns 200; 461 when there is no such transport; 503 when all groups are in use or multicast has no way
    ///          out; 404 for a track that a group does not carry
    RtspStatus make(const TransportChoice& choice, const RtspSession& session, std::string_view trackId,
                    RtspSession::Delivery& out, std::string& text);

    /// Writes the Transport header of the answer to SETUP.
    static void answer(ResponseWriter& out, const std::string& text, std::uint32_t ssrc);

    /// An interleaved frame from the client.
    void received(int channel, const std::uint8_t* data, std::size_t size);

private:
    RtspStatus makeUdp(const TransportChoice& choice, const RtspSession& session, RtspSession::Delivery& out,
                       std::string& text);
    RtspStatus makeMulticast(const RtspSession& session, std::string_view trackId, RtspSession::Delivery& out,
                             std::string& text);
    RtspStatus makeInterleaved(const TransportChoice& choice, const RtspSession& session,
                               RtspSession::Delivery& out, std::string& text);

    RtspServices& services_;
    ClientConnection& connection_;
    std::shared_ptr<InterleavedChannels> channels_;  // made with the first interleaved track
};

}  // namespace refhost
