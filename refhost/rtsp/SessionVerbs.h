#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "live/IRTSPController.h"
#include "refhost/rtsp/Exchange.h"
#include "refhost/rtsp/FrontServices.h"
#include "refhost/rtsp/InterleavedChannels.h"
#include "refhost/rtsp/RtspSession.h"
#include "refhost/rtsp/TransportHeader.h"

namespace refhost
{

/// The verbs that reach a controller, for one connection: DESCRIBE, SETUP, PLAY, PAUSE and TEARDOWN.
///
/// Keeps the sessions that the connection used, and ends those with interleaved tracks when it goes.
/// Threads: the connection's; `link` and `services` outlive it.
class SessionVerbs
{
public:
    enum class Result
    {
        answered,
        /// The stream is not described yet and nothing was answered: ask again later.
        notReady
    };

    SessionVerbs(FrontServices& services, ClientLink& link);

    /// \param lastTry  answer 503 instead of asking for another try
    Result describe(Exchange& exchange, bool lastTry);
    Result setup(Exchange& exchange, bool lastTry);
    void play(Exchange& exchange);
    void pause(Exchange& exchange);
    void teardown(Exchange& exchange);

    /// Finds the session that the request names and notes that it was heard.
    /// \returns null when the request names none, or one that does not exist
    std::shared_ptr<RtspSession> findSession(const RtspRequest& request);

    /// Adds "Session: <id>;timeout=<seconds>".
    void addSessionHeader(ResponseWriter& out, const RtspSession& session) const;

    /// An interleaved frame from the client.
    void received(int channel, const std::uint8_t* data, std::size_t size);

    /// True while a session that this connection used exists.
    bool carriesSession();
    /// The connection took bytes.
    void linkMoved();
    /// The connection is gone.
    void linkEnded();

private:
    RtspStatus createController(const Exchange& exchange, std::optional<SafePointer<IRTSPController>>& out,
                                bool& notReady);
    RtspStatus createSession(Exchange& exchange, std::shared_ptr<RtspSession>& out, bool& notReady);
    void setupTrack(Exchange& exchange, const std::shared_ptr<RtspSession>& session,
                    const TransportChoice& choice);
    void endIfEmpty(const std::shared_ptr<RtspSession>& session);
    RtspStatus makeDelivery(const TransportChoice& choice, const RtspSession& session,
                            RtspSession::Delivery& out, std::string& transportText);
    std::shared_ptr<RtspSession> sessionOf(Exchange& exchange);
    void flushBeforePackets(const std::vector<RtspSession::PlayedTrack>& tracks);
    static void addRtpInfo(ResponseWriter& out, std::string_view base,
                           const std::vector<RtspSession::PlayedTrack>& tracks);
    void use(const std::shared_ptr<RtspSession>& session);

    FrontServices& services_;
    ClientLink& link_;
    std::shared_ptr<InterleavedChannels> channels_;  // made with the first interleaved track
    std::vector<std::weak_ptr<RtspSession>> sessions_;
};

}  // namespace refhost
