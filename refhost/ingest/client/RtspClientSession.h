#pragma once
// Tested by tests/refhost/ingest/client/RtspClientEnds_test.cpp, tests/refhost/ingest/client/RtspClientStop_test.cpp.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/ingest/client/CameraConnection.h"
#include "refhost/ingest/client/CameraDescription.h"
#include "refhost/ingest/client/CameraHeaders.h"
#include "refhost/ingest/client/CameraRequests.h"
#include "refhost/ingest/client/CameraTracks.h"
#include "refhost/ingest/client/CameraUrl.h"
#include "refhost/ingest/client/RtspClientEvents.h"
#include "refhost/ingest/client/RtspClientOptions.h"
#include "refhost/ingest/client/RtspClientState.h"
#include "refhost/net/StreamConnector.h"

namespace refhost
{

/// What an RtspClient does, from its start to the end of its connection, which may be later than the client's.
///
/// Threads: the loop's, for everything but the constructor.
class RtspClientSession final : public CameraConnection::Events,
                                public std::enable_shared_from_this<RtspClientSession>
{
public:
    static constexpr int maxRedirects = 5;
    static constexpr int maxReconnects = 2;  ///< of a camera that closes its connection before it describes

    RtspClientSession(EventLoop& loop, StreamConnector& connector, const std::string& url,
                      const RtspClientOptions& options, RtspClientEvents& events);
    ~RtspClientSession();

    // As those of RtspClient.
    void start();
    void stop(std::function<void()> closed);
    bool sendReport(std::size_t track, const std::uint8_t* data, std::size_t size);

    RtspClientState state() const
    {
        return state_.state();
    }

private:
    using State = RtspClientState;
    using Kind = RtspClientEnd::Kind;

    // Connection.
    void connect();
    void onConnected(std::unique_ptr<ByteStream> stream, const std::string& error);
    void reconnect();
    void onMessage(CameraMessage& message) override;
    void onInterleaved(int channel, const std::uint8_t* data, std::size_t size,
                       MonotonicTime arrival) override;
    void onOpenBody() override;
    void onClosed(CameraConnection::Ended why, const std::string& error) override;

    // Requests.
    void request(const char* method, const std::string& uri, CameraRequests::Headers headers);
    void describe();
    void setUpNext();
    void play();
    void keepAlive();
    CameraRequests::Headers withSession(CameraRequests::Headers headers) const;

    // Answers.
    void onAnswer(const std::string& method, const CameraMessage& answer);
    void onOptions(const CameraMessage& answer);
    void onDescription(const CameraMessage& answer);
    void onSetUp(const CameraMessage& answer);
    bool onTrackSetUp(const CameraMessage& answer, CameraTracks::Track& track);
    void onPlay(const CameraMessage& answer);
    void onKeepAlive(const std::string& method, const CameraMessage& answer);
    void redirect(const CameraMessage& answer);
    void answerCamera(const CameraMessage& request);
    void startPlaying(const std::vector<RtpInfo>& infos);

    // Time.
    MonotonicTime nextDue() const;
    void arm();
    void onTimer();
    void onOverdue();

    // End.
    void refuse(const char* method, const CameraMessage& answer);
    void end(Kind kind, std::string text, int status = 0);
    void finish(const RtspClientEnd& reason);
    void leave();
    void close();

    EventLoop& loop_;
    StreamConnector& connector_;
    const RtspClientOptions options_;
    RtspClientEvents* events_;  ///< null once nothing is reported any more
    StateMachine<State> state_{State::idle};

    const std::optional<CameraUrl> home_;  ///< as configured: what the credentials are for
    CameraUrl url_;                        ///< where redirects led
    std::unique_ptr<StreamConnector::Attempt> attempt_;
    std::unique_ptr<CameraConnection> connection_;
    std::unique_ptr<CameraConnection> retired_;  ///< the one before, which may be reporting
    std::unique_ptr<CameraRequests> requests_;
    int redirects_ = 0;
    int reconnects_ = 0;
    bool asked_ = false;  ///< OPTIONS was sent once

    const char* keepAliveMethod_ = "OPTIONS";
    std::string control_;  ///< URL of what is played
    SessionReply session_;
    CameraTracks tracks_;

    EventLoop::TimerId timer_;
    MonotonicTime timerDue_ = MonotonicTime::max();
    MonotonicTime openDeadline_ = MonotonicTime::max();    ///< of everything before media
    MonotonicTime answerDeadline_ = MonotonicTime::max();  ///< of the request that the state waits for
    MonotonicTime bodyDeadline_ = MonotonicTime::max();
    MonotonicTime keepAliveDue_ = MonotonicTime::max();
    MonotonicTime lastPacket_;
    bool packetCame_ = false;
    std::vector<std::function<void()>> whenClosed_;
};

}  // namespace refhost
