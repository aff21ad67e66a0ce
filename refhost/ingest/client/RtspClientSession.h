#pragma once
// Tested by tests/refhost/ingest/client/RtspClientEnds_test.cpp, tests/refhost/ingest/client/RtspClientStop_test.cpp.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/ingest/client/CameraDatagrams.h"
#include "refhost/ingest/client/CameraDescription.h"
#include "refhost/ingest/client/CameraLink.h"
#include "refhost/ingest/client/CameraSetUp.h"
#include "refhost/ingest/client/ClientDeadlines.h"
#include "refhost/ingest/client/RtspClientEvents.h"
#include "refhost/ingest/client/RtspClientOptions.h"
#include "refhost/ingest/client/RtspClientState.h"
#include "refhost/net/StreamConnector.h"

namespace refhost
{

/// What an RtspClient does, from its start to the end of its connection, which may be later than the client's.
///
/// Threads: the loop's, for everything but the constructor.
class RtspClientSession final : private CameraLink::Events,
                                private CameraDatagrams::Events,
                                public std::enable_shared_from_this<RtspClientSession>
{
public:
    RtspClientSession(EventLoop& loop, StreamConnector& connector, const std::string& url,
                      const RtspClientOptions& options, RtspClientEvents& events);

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
    using Deadline = ClientDeadlines::Deadline;

    // Connection.
    void connect();
    void onConnected() override;
    void onUnreachable(const std::string& error) override;
    void onClosed(CameraConnection::Ended why, const std::string& error) override;
    void onMessageCame() override;
    void onOpenBody() override;
    void onCameraRequest(const std::string& method) override;
    void onCongested() override;

    // Media.
    void onInterleaved(int channel, const std::uint8_t* data, std::size_t size,
                       MonotonicTime arrival) override;
    void onMedia(std::size_t track, bool reports, const std::uint8_t* data, std::size_t size,
                 MonotonicTime arrival) override;

    // Requests.
    void request(const char* method, const std::string& uri, CameraRequests::Headers headers);
    void describe();
    void setUpNext();
    void play();
    void keepAlive();

    // Answers.
    void onAnswer(const std::string& method, const CameraMessage& answer) override;
    void onOptions(const CameraMessage& answer);
    void onDescription(const CameraMessage& answer);
    void onSetUp(const CameraMessage& answer);
    void onPlay(const CameraMessage& answer);
    void onKeepAlive(const std::string& method, const CameraMessage& answer);
    void redirect(const CameraMessage& answer);
    void startPlaying(const std::vector<RtpInfo>& infos);

    // Time.
    void onDue();
    void onOverdue();
    void onSilence();

    // End.
    void refuse(RtspClientEnd reason);
    void end(Kind kind, std::string text, int status = 0);
    void finish(const RtspClientEnd& reason);
    void leave();
    void close();

    const RtspClientOptions options_;
    EventLoop& loop_;
    RtspClientEvents* events_;  ///< null once nothing is reported any more
    StateMachine<State> state_{State::idle};
    ClientDeadlines deadlines_;

    std::optional<CameraLink> link_;  ///< nothing where the URL cannot be read
    bool asked_ = false;              ///< OPTIONS was sent to this host

    const char* keepAliveMethod_ = "OPTIONS";
    std::string control_;  ///< URL of what is played
    CameraSetUp setUp_;
    bool packetCame_ = false;
    std::vector<std::function<void()>> whenClosed_;
};

}  // namespace refhost
