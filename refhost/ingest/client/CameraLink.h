#pragma once
// Tested by tests/refhost/ingest/client/RtspClientLogin_test.cpp, tests/refhost/ingest/client/RtspClientQuirks_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/base/Times.h"
#include "refhost/ingest/client/CameraConnection.h"
#include "refhost/ingest/client/CameraRequests.h"
#include "refhost/ingest/client/CameraUrl.h"
#include "refhost/net/StreamConnector.h"

namespace refhost
{

/// The requests of a client to its camera and their answers, over one connection after the other: the camera may
/// close one, or redirect to another host. Answers demands for a login, and the camera's own requests.
///
/// Credentials go to the host and port of the configured URL alone.
///
/// Threads: the loop's.
class CameraLink final : private CameraConnection::Events
{
public:
    static constexpr int maxRedirects = 5;
    static constexpr int maxReconnects = 2;

    /// What a link reports. Each call may close it, which ends the reports.
    class Events
    {
    public:
        virtual void onConnected() = 0;
        /// There is no connection. \param error  why: one line
        virtual void onUnreachable(const std::string& error) = 0;
        /// The final answer to a request.
        virtual void onAnswer(const std::string& method, const CameraMessage& answer) = 0;
        /// The camera asked by itself, and was answered.
        virtual void onCameraRequest(const std::string& method) = 0;
        /// The camera takes no requests any more.
        virtual void onCongested() = 0;
        /// As for CameraConnection::Events.
        virtual void onInterleaved(int channel, const std::uint8_t* data, std::size_t size,
                                   MonotonicTime arrival) = 0;
        virtual void onOpenBody() = 0;
        /// A message came whole.
        virtual void onMessageCame() = 0;
        virtual void onClosed(CameraConnection::Ended why, const std::string& error) = 0;

    protected:
        ~Events() = default;
    };

    CameraLink(EventLoop& loop, StreamConnector& connector, CameraUrl url, Events& events);
    CameraLink(const CameraLink&) = delete;
    CameraLink& operator=(const CameraLink&) = delete;

    /// Connects, for the first time or again; a connection that there is ends.
    /// \param owner  owns the link; held while it reports
    void connect(Duration timeout, std::weak_ptr<void> owner);
    /// Prepares to connect again with the login as it stands: some cameras close their connection behind a demand
    /// for one, or behind OPTIONS.
    /// \returns false when that was done too often
    bool prepareAgain();
    /// Prepares to connect where the camera redirects to.
    /// \returns why it is not followed: one line; empty when it is
    std::string prepareRedirect(std::string_view location);

    /// \returns false when the camera takes no requests any more
    /// Requires: connected.
    bool request(const char* method, const std::string& uri, CameraRequests::Headers headers);
    /// Waits no more for the answers to what was requested; late ones are left out.
    void giveUpAnswers();
    bool sendPacket(int channel, const std::uint8_t* data, std::size_t size);
    /// Takes the message whose body is open.
    void endBody();
    void close();

    bool isOpen() const
    {
        return connection_ != nullptr && connection_->isOpen();
    }
    /// Where redirects led.
    const CameraUrl& url() const
    {
        return url_;
    }
    /// Why a demand for a login was not met, for the log.
    std::string loginRefusal() const;
    /// Both sides of the connection, and whether it is encrypted. Requires: connected.
    const ByteStream& stream() const
    {
        return connection_->stream();
    }

private:
    void onStream(std::unique_ptr<ByteStream> stream, const std::string& error);
    void onMessage(CameraMessage& message) override;
    void onInterleaved(int channel, const std::uint8_t* data, std::size_t size,
                       MonotonicTime arrival) override;
    void onOpenBody() override;
    void onClosed(CameraConnection::Ended why, const std::string& error) override;
    void answerCamera(const CameraMessage& request);
    void retire();
    bool isHome() const;

    EventLoop& loop_;
    StreamConnector& connector_;
    Events& events_;
    const CameraUrl home_;  ///< as configured: what the credentials are for
    CameraUrl url_;
    std::weak_ptr<void> owner_;
    std::unique_ptr<StreamConnector::Attempt> attempt_;
    std::unique_ptr<CameraConnection> connection_;
    std::unique_ptr<CameraConnection> retired_;  ///< the one before, which may be reporting
    std::unique_ptr<CameraRequests> requests_;
    int redirects_ = 0;
    int reconnects_ = 0;
};

}  // namespace refhost
