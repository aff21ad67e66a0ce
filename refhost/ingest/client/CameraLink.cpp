#include "refhost/ingest/client/CameraLink.h"

#include <fmt/format.h>

#include <optional>
#include <system_error>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/ingest/client/RtspRefusal.h"

namespace refhost
{

CameraLink::CameraLink(EventLoop& loop, StreamConnector& connector, CameraUrl url, Events& events)
    : loop_(loop), connector_(connector), events_(events), home_(std::move(url)), url_(home_)
{
}

void CameraLink::connect(Duration timeout, std::weak_ptr<void> owner)
{
    owner_ = std::move(owner);
    attempt_ = connector_.connect(loop_, url_.host, url_.port, timeout,
                                  [this](std::unique_ptr<ByteStream> stream, const std::string& error)
                                  { onStream(std::move(stream), error); });
}

void CameraLink::onStream(std::unique_ptr<ByteStream> stream, const std::string& error)
{
    const auto held = owner_.lock();
    attempt_ = nullptr;
    if (stream == nullptr)
    {
        events_.onUnreachable(error);
        return;
    }
    try
    {
        CameraConnection::Events& events = *this;
        connection_ = std::make_unique<CameraConnection>(loop_, std::move(stream), events, owner_);
    }
    catch (const std::system_error& failure)
    {
        events_.onUnreachable(fmt::format("cannot watch the connection: {}", failure.what()));
        return;
    }
    if (requests_ == nullptr)
    {
        requests_ = std::make_unique<CameraRequests>(
            CameraLogin(isHome() ? home_.user : "", isHome() ? home_.password : ""));
    }
    events_.onConnected();
}

bool CameraLink::prepareAgain()
{
    if (reconnects_ >= maxReconnects)
    {
        return false;
    }
    ++reconnects_;
    requests_ = std::make_unique<CameraRequests>(requests_->login(), true);
    retire();
    return true;
}

std::string CameraLink::prepareRedirect(std::string_view location)
{
    const std::optional<CameraUrl> next = url_.redirected(location);
    if (!next || ++redirects_ > maxRedirects)
    {
        return fmt::format("the camera sends its clients {}: {}",
                           next ? "in circles" : "where they cannot follow",
                           Log::safe(Log::maskUrl(location)));
    }
    url_ = *next;
    requests_ = nullptr;
    retire();
    return {};
}

std::string CameraLink::loginRefusal() const
{
    if (!isHome())
    {
        return fmt::format("the camera demands a login at {}, which gets none", url_.host);
    }
    return home_.user.empty() ? "the camera demands a login, and the location has no user name and password"
                              : "wrong password or user name";
}

/// Whether redirects led to where the credentials are for.
bool CameraLink::isHome() const
{
    return url_.sameServer(home_);
}

void CameraLink::retire()
{
    connection_->close();
    retired_ = std::move(connection_);
}

bool CameraLink::request(const char* method, const std::string& uri, CameraRequests::Headers headers)
{
    return connection_->send(requests_->make(method, uri, std::move(headers)));
}

void CameraLink::giveUpAnswers()
{
    requests_->giveUp();
}

bool CameraLink::sendPacket(int channel, const std::uint8_t* data, std::size_t size)
{
    return connection_->sendPacket(channel, data, size);
}

void CameraLink::endBody()
{
    connection_->endBody();
}

void CameraLink::close()
{
    attempt_ = nullptr;
    if (connection_ != nullptr)
    {
        connection_->close();
    }
}

void CameraLink::onMessage(CameraMessage& message)
{
    events_.onMessageCame();
    if (message.status == 0)
    {
        answerCamera(message);
        return;
    }
    if (message.status < RtspRefusal::ok)
    {
        return;  // it goes on
    }
    switch (requests_->take(message))
    {
        case CameraRequests::Answer::unexpected:
            return;
        case CameraRequests::Answer::again:
            if (!connection_->send(requests_->again()))
            {
                events_.onCongested();
            }
            return;
        case CameraRequests::Answer::final:
            events_.onAnswer(requests_->answered(), message);
            return;
    }
}

/// Answers a request of the camera's own.
void CameraLink::answerCamera(const CameraMessage& request)
{
    const std::string method = request.startLine.substr(0, request.startLine.find(' '));
    if (!connection_->send(CameraRequests::answerTo(method, request)))
    {
        events_.onCongested();
        return;
    }
    events_.onCameraRequest(method);
}

void CameraLink::onInterleaved(int channel, const std::uint8_t* data, std::size_t size, MonotonicTime arrival)
{
    events_.onInterleaved(channel, data, size, arrival);
}

void CameraLink::onOpenBody()
{
    events_.onOpenBody();
}

void CameraLink::onClosed(CameraConnection::Ended why, const std::string& error)
{
    events_.onClosed(why, error);
}

}  // namespace refhost
