#include "refhost/http/HttpService.h"

#include <chrono>
#include <exception>
#include <future>
#include <optional>
#include <utility>
#include <vector>

#include "refhost/base/Log.h"
#include "refhost/net/TcpStream.h"

namespace refhost
{
namespace
{

// Serials of RTSP connections start at 1: a nonce is of one connection of one protocol.
constexpr std::uint64_t firstSerial = std::uint64_t{1} << 62U;

}  // namespace

HttpService::HttpService(const ServerConfig& config, UserAccess& users, const HostClock& clock)
    : config_(config),
      clock_(clock),
      users_(users),
      guard_(config, users),
      work_(config.http.background),
      dispatcher_(config_.http, guard_, router_, work_, clock,
                  [this](Duration span, std::function<void()> task) { loop_->after(span, std::move(task)); }),
      places_(config.http.connections, config.http.connectionsPerAddress),
      serial_(firstSerial)
{
}

HttpService::~HttpService()
{
    stop();
}

HttpRouter& HttpService::router()
{
    return router_;
}

UserAccess& HttpService::users()
{
    return users_;
}

const HttpGuard& HttpService::guard() const
{
    return guard_;
}

BackgroundWork& HttpService::background()
{
    return work_;
}

bool HttpService::start(std::string& error)
{
    const HttpConfig& http = config_.http;
    const auto address = SocketAddress::parseWithPort(http.listen);
    // The configuration warns of HTTPS without a certificate.
    if (!address || (http.tls && !config_.tls.enabled()))
    {
        return true;
    }
    if (http.tls)
    {
        tls_ = TlsAcceptor::open(config_.tls, error);
        if (tls_ == nullptr)
        {
            return false;
        }
    }
    const std::chrono::seconds liveness(http.idleTimeout);
    listener_ = TcpListener::open(address->text(), address->port(), liveness, error);
    if (listener_ == nullptr)
    {
        error.insert(0, "http: ");
        stop();
        return false;
    }
    try
    {
        loop_ = std::make_unique<EventLoop>("http");
        loop_->every(std::chrono::seconds(1), [this] { sweep(); });
        loop_->add(listener_->descriptor(), EventLoop::readable, [this](std::uint32_t) { accept(); });
    }
    catch (const std::exception& failure)
    {
        error = std::string("http: ") + failure.what();
        stop();
        return false;
    }
    return true;
}

void HttpService::stop()
{
    if (loop_ != nullptr)
    {
        if (listener_ != nullptr)
        {
            loop_->remove(listener_->descriptor());
        }
        std::promise<void> done;
        loop_->post(
            [this, &done]
            {
                closeAll();
                done.set_value();
            });
        done.get_future().wait();
    }
    // Its tasks post to the loop.
    work_.close();
    loop_.reset();
    listener_.reset();
    tls_.reset();
}

void HttpService::accept()
{
    listener_->acceptAll([this](Descriptor socket, const SocketAddress& peer)
                         { adopt(std::move(socket), peer); });
}

void HttpService::adopt(Descriptor socket, const SocketAddress& peer)
{
    if (!places_.take(peer.key()))
    {
        Log::limited(Log::Level::warning, "HTTP connections refused",
                     "{}: HTTP connection refused: too many, or too many of its address", peer.text());
        return;
    }
    std::shared_ptr<HttpConnection> made;
    try
    {
        std::shared_ptr<ByteStream> stream = tls_ != nullptr
                                                 ? tls_->accept(std::move(socket), peer)
                                                 : std::make_shared<TcpStream>(std::move(socket), peer);
        if (stream == nullptr)
        {
            places_.giveBack(peer.key());
            return;
        }
        HttpConnection::Events events;
        events.requested = [this, login = std::make_shared<ConnectionLogin>(users_)](
                               HttpRequest request, const HttpConnection::Respond& respond)
        {
            request.login = login;
            requests_.fetch_add(1, std::memory_order_relaxed);
            dispatcher_.dispatch(std::move(request), respond);
        };
        events.closed = [this](HttpConnection& connection) { forget(connection); };
        made = std::make_shared<HttpConnection>(std::move(stream), *loop_, config_.http, clock_, ++serial_,
                                                std::move(events));
        clients_.emplace(made.get(), made);
        made->open();
    }
    catch (const std::exception& error)
    {
        Log::error("{}: no HTTP connection: {}", peer.text(), error.what());
        places_.giveBack(peer.key());
        clients_.erase(made.get());
    }
}

void HttpService::forget(const HttpConnection& connection)
{
    const auto found = clients_.find(&connection);
    if (found == clients_.end())
    {
        return;
    }
    places_.giveBack(connection.peer().key());
    // The connection may be in use above this call.
    loop_->post([held = std::move(found->second)] {});
    clients_.erase(found);
}

void HttpService::sweep()
{
    std::vector<std::shared_ptr<HttpConnection>> all;
    all.reserve(clients_.size());
    for (const auto& [key, client] : clients_)
    {
        all.push_back(client);
    }
    for (const auto& client : all)
    {
        client->sweep();
    }
}

void HttpService::closeAll()
{
    for (const auto& [key, client] : clients_)
    {
        client->close();
        places_.giveBack(client->peer().key());
    }
    clients_.clear();
}

int HttpService::port() const
{
    return listener_ == nullptr ? 0 : listener_->port();
}

void HttpService::refreshCertificate()
{
    if (tls_ != nullptr)
    {
        tls_->refresh();
    }
}

std::size_t HttpService::connectionCount() const
{
    return places_.count();
}

std::uint64_t HttpService::requestCount() const
{
    return requests_.load(std::memory_order_relaxed);
}

}  // namespace refhost
