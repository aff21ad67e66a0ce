#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "refhost/rtsp/ClientLink.h"
#include "refhost/rtsp/FrontServices.h"
#include "refhost/rtsp/InterleavedChannels.h"
#include "refhost/rtsp/ResponseWriter.h"
#include "refhost/rtsp/RtspRequest.h"
#include "refhost/rtsp/RtspSession.h"
#include "refhost/rtsp/TransportHeader.h"

namespace refhost
{

/// The ways to the client that SETUP makes on one connection, and what its answer tells of them.
/// Threads: the connection's; `services` and `link` outlive it.
class TrackDeliveries
{
public:
    TrackDeliveries(FrontServices& services, ClientLink& link);

    /// \returns the first choice of the request's Transport headers that this server can do
    static std::optional<TransportChoice> choose(const RtspRequest& request);

    /// Makes the way of one track of `session`.
    /// \param[out] text  the answer's Transport header so far, for answer()
    /// \returns 200; 461 when there is no such way
    RtspStatus make(const TransportChoice& choice, const RtspSession& session, RtspSession::Delivery& out,
                    std::string& text);

    /// Writes the Transport header of the answer to SETUP.
    static void answer(ResponseWriter& out, const std::string& text, std::uint32_t ssrc);

    /// An interleaved frame from the client.
    void received(int channel, const std::uint8_t* data, std::size_t size);

private:
    RtspStatus makeUdp(const TransportChoice& choice, const RtspSession& session, RtspSession::Delivery& out,
                       std::string& text);
    RtspStatus makeInterleaved(const TransportChoice& choice, const RtspSession& session,
                               RtspSession::Delivery& out, std::string& text);

    FrontServices& services_;
    ClientLink& link_;
    std::shared_ptr<InterleavedChannels> channels_;  // made with the first interleaved track
};

}  // namespace refhost
