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

/// Makes the transports for SETUP on one connection, and their Transport headers. Threads: the connection's;
/// a temporary, whose arguments outlive it.
class TrackDeliveries
{
public:
    /// \param channels  the connection's; made with the first interleaved track, null before
    TrackDeliveries(RtspServices& services, ClientConnection& connection,
                    std::shared_ptr<InterleavedChannels>& channels);

    /// \param multicast  whether the presentation is sent to a group
    /// \param admit      skips choices that are not allowed
    /// \returns the first supported choice of the request's Transport headers; nothing when there is none
    std::optional<TransportChoice> choose(const RtspRequest& request, bool multicast,
                                          const TransportHeader::Admit& admit) const;

    /// Makes the transport of one track of `session`.
    /// \param trackId    of the request; empty for the only track
    /// \param protection  encrypts the track; null: it is not encrypted
    /// \param[out] text  the response's Transport header so far, for answer()
    /// \returns 200; 461 when the transport is not available; 503 when all groups are in use or multicast has
    ///          no route; 404 for a track that a group does not have
    RtspStatus make(const TransportChoice& choice, const RtspSession& session, std::string_view trackId,
                    const std::shared_ptr<ProtectedSender>& protection, RtspSession::Delivery& out,
                    std::string& text);

    /// Writes the Transport header of the response to SETUP.
    static void answer(ResponseWriter& out, const std::string& text, std::uint32_t ssrc);

private:
    RtspStatus makeUdp(const TransportChoice& choice, const RtspSession& session,
                       const std::shared_ptr<ProtectedSender>& protection, RtspSession::Delivery& out,
                       std::string& text);
    RtspStatus makeMulticast(const RtspSession& session, std::string_view trackId,
                             const std::shared_ptr<ProtectedSender>& protection, RtspSession::Delivery& out,
                             std::string& text);
    RtspStatus makeInterleaved(const TransportChoice& choice, const RtspSession& session,
                               const std::shared_ptr<ProtectedSender>& protection, RtspSession::Delivery& out,
                               std::string& text);

    RtspServices& services_;
    ClientConnection& connection_;
    std::shared_ptr<InterleavedChannels>& channels_;
};

}  // namespace refhost
