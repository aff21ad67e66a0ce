#include "tests/refhost/ingest/client/ScriptedCamera.h"

#include <utility>

#include "refhost/base/ByteOrder.h"
#include "tests/refhost/net/ForwardingStream.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr std::chrono::milliseconds patience = bound;

/// A stream whose both sides are on this machine.
class LoopbackStream final : public ForwardingStream
{
public:
    LoopbackStream(std::shared_ptr<ByteStream> inner, bool encrypted)
        : ForwardingStream(std::move(inner)), encrypted_(encrypted)
    {
    }

    const SocketAddress& peer() const override
    {
        return address_;
    }
    const SocketAddress& local() const override
    {
        return address_;
    }
    bool encrypted() const override
    {
        return encrypted_;
    }

private:
    const bool encrypted_;
    const SocketAddress address_ = *SocketAddress::parse("127.0.0.1");
};

}  // namespace

std::string CameraRequest::header(const std::string& name) const
{
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

ScriptedCamera::ScriptedCamera(std::shared_ptr<MemoryStream> stream) : stream_(std::move(stream)) {}

bool ScriptedCamera::readMore()
{
    const std::string more = stream_->read(static_cast<int>(patience.count()));
    received_ += more;
    return !more.empty();
}

CameraRequest ScriptedCamera::request()
{
    for (;;)
    {
        const bool isPacket = !received_.empty() && received_.front() == '$';
        const std::size_t end = received_.find("\r\n\r\n");
        if (isPacket && received_.size() >= 4)
        {
            const std::size_t size = readBig16(reinterpret_cast<const std::uint8_t*>(received_.data()) + 2);
            if (received_.size() >= 4 + size)
            {
                packets_.push_back(received_.substr(0, 4 + size));
                received_.erase(0, 4 + size);
                continue;
            }
        }
        else if (!isPacket && end != std::string::npos)
        {
            break;
        }
        if (!readMore())
        {
            return {};
        }
    }
    CameraRequest request;
    const std::size_t end = received_.find("\r\n\r\n");
    std::string head = received_.substr(0, end + 2);
    received_.erase(0, end + 4);
    const std::size_t first = head.find(' ');
    const std::size_t second = head.find(' ', first + 1);
    request.method = head.substr(0, first);
    request.uri = head.substr(first + 1, second - first - 1);
    for (std::size_t line = head.find("\r\n") + 2; line < head.size();)
    {
        const std::size_t lineEnd = head.find("\r\n", line);
        const std::size_t colon = head.find(": ", line);
        request.headers[head.substr(line, colon - line)] = head.substr(colon + 2, lineEnd - colon - 2);
        line = lineEnd + 2;
    }
    return request;
}

CameraRequest ScriptedCamera::expect(const std::string& method)
{
    CameraRequest next = request();
    EXPECT_EQ(next.method, method);
    return next;
}

void ScriptedCamera::answer(const CameraRequest& request, const std::string& status,
                            const std::string& headers, const std::string& body)
{
    std::string text = "RTSP/1.0 " + status + "\r\nCSeq: " + request.header("CSeq") + "\r\n" + headers;
    text += body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n";
    send(text + "\r\n" + body);
}

CameraRequest ScriptedCamera::serve(const std::string& method, const std::string& headers,
                                    const std::string& body)
{
    CameraRequest next = expect(method);
    answer(next, "200 OK", headers, body);
    return next;
}

CameraRequest ScriptedCamera::serveUpTo(const std::string& method, const std::string& description)
{
    for (const char* each : {"OPTIONS", "DESCRIBE", "SETUP", "PLAY"})
    {
        if (each == method)
        {
            break;
        }
        const bool describes = each == std::string("DESCRIBE");
        serve(each, each == std::string("SETUP") ? "Session: 1\r\n" : "", describes ? description : "");
    }
    return expect(method);
}

void ScriptedCamera::servePlaying(const std::string& description, int tracks)
{
    serve("OPTIONS", "Public: OPTIONS, DESCRIBE, SETUP, PLAY, GET_PARAMETER, TEARDOWN\r\n");
    serve("DESCRIBE", "Content-Type: application/sdp\r\n", description);
    for (int i = 0; i < tracks; ++i)
    {
        const CameraRequest next = expect("SETUP");
        answer(next, "200 OK", "Session: 1234;timeout=60\r\nTransport: " + next.header("Transport") + "\r\n");
    }
    serve("PLAY", "Session: 1234\r\n");
}

void ScriptedCamera::send(std::string_view bytes)
{
    stream_->write(bytes);
}

std::string ScriptedCamera::packet(int channel, std::string_view payload)
{
    std::uint8_t framing[4] = {'$', static_cast<std::uint8_t>(channel)};
    writeBig16(framing + 2, static_cast<std::uint16_t>(payload.size()));
    return std::string(reinterpret_cast<const char*>(framing), sizeof framing).append(payload);
}

bool ScriptedCamera::waitClosed()
{
    while (!stream_->closed())
    {
        if (stream_->read(static_cast<int>(patience.count())).empty() && !stream_->closed())
        {
            return false;
        }
    }
    return true;
}

std::unique_ptr<StreamConnector::Attempt> MemoryConnector::connect(EventLoop& loop, const std::string& host,
                                                                   int port, Duration, Connected connected)
{
    struct PendingAttempt final : Attempt
    {
        std::shared_ptr<Connected> connected;
    };
    auto attempt = std::make_unique<PendingAttempt>();
    attempt->connected = std::make_shared<Connected>(std::move(connected));
    const std::lock_guard<std::mutex> guard(mutex_);
    asked_.push_back(host + ":" + std::to_string(port));
    std::shared_ptr<MemoryStream> stream;
    if (!error_ && !stalled_)
    {
        stream = std::make_shared<MemoryStream>(bytesAtOnce_);
        streams_.push_back(stream);
    }
    if (!stalled_)
    {
        loop.post(
            [weak = std::weak_ptr<Connected>(attempt->connected), stream, encrypted = encrypted_,
             error = error_.value_or("")]
            {
                if (const auto call = weak.lock())
                {
                    (*call)(stream == nullptr ? nullptr : std::make_unique<LoopbackStream>(stream, encrypted),
                            error);
                }
            });
    }
    arrived_.notify_all();
    return attempt;
}

void MemoryConnector::refuse(const std::string& error)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    error_ = error;
}

void MemoryConnector::encrypt()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    encrypted_ = true;
}

void MemoryConnector::stall()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    stalled_ = true;
}

std::unique_ptr<ScriptedCamera> MemoryConnector::accept()
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (!arrived_.wait_for(lock, patience, [this] { return !streams_.empty(); }))
    {
        ADD_FAILURE() << "no connection";
        return std::make_unique<ScriptedCamera>(std::make_shared<MemoryStream>());
    }
    auto camera = std::make_unique<ScriptedCamera>(streams_.front());
    streams_.pop_front();
    return camera;
}

std::vector<std::string> MemoryConnector::asked() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return asked_;
}

std::vector<std::size_t> CollectedEvents::onDescribed(const std::vector<CameraTrack>& tracks)
{
    std::vector<std::size_t> all;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        described_ = tracks;
        for (std::size_t i = 0; i < tracks.size(); ++i)
        {
            all.push_back(i);
        }
    }
    note("described");
    return chosen.value_or(all);
}

void CollectedEvents::onPlaying(const std::vector<CameraPlayInfo>& tracks)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        playing_ = tracks;
    }
    note("playing");
}

void CollectedEvents::onPacket(std::size_t track, const std::uint8_t* data, std::size_t size, MonotonicTime)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        packets_.push_back({track, std::string(reinterpret_cast<const char*>(data), size), false});
    }
    note("packet");
}

void CollectedEvents::onReport(std::size_t track, const std::uint8_t* data, std::size_t size, MonotonicTime)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        packets_.push_back({track, std::string(reinterpret_cast<const char*>(data), size), true});
    }
    note("report");
}

void CollectedEvents::onEnded(const RtspClientEnd& end)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        EXPECT_FALSE(end_) << "ended twice";
        end_ = end;
    }
    note("ended");
}

void CollectedEvents::note(const char* event)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++calls_;
        changed_.notify_all();
    }
    if (within)
    {
        within(event);
    }
}

template <class Condition>
bool CollectedEvents::waitFor(const Condition& condition)
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, patience, condition);
}

std::vector<CameraTrack> CollectedEvents::described()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return described_;
}

std::vector<CameraPlayInfo> CollectedEvents::playing()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return playing_.value_or(std::vector<CameraPlayInfo>());
}

std::vector<CollectedEvents::Packet> CollectedEvents::packets()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return packets_;
}

RtspClientEnd CollectedEvents::end()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return end_.value_or(RtspClientEnd());
}

std::size_t CollectedEvents::calls()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return calls_;
}

bool CollectedEvents::waitPlaying()
{
    return waitFor([this] { return playing_.has_value() || end_.has_value(); }) && playing_.has_value();
}

bool CollectedEvents::waitPackets(std::size_t count)
{
    return waitFor([this, count] { return packets_.size() >= count; });
}

bool CollectedEvents::waitEnded()
{
    return waitFor([this] { return end_.has_value(); });
}

ClientWorld::ClientWorld(std::size_t bytesAtOnce) : connector(bytesAtOnce)
{
    options.openTimeout = std::chrono::minutes(2);
    options.connectTimeout = std::chrono::minutes(1);
    options.answerTimeout = std::chrono::minutes(1);
    options.silenceTimeout = std::chrono::minutes(1);
    options.teardownTimeout = std::chrono::seconds(5);
}

ClientWorld::~ClientWorld()
{
    runOn(loop, [this] { client = nullptr; });
}

void ClientWorld::start(const std::string& location)
{
    runOn(loop,
          [&]
          {
              client = std::make_unique<RtspClient>(loop, connector, location, options, events);
              const std::size_t calls = events.calls();
              client->start();
              EXPECT_EQ(events.calls(), calls);
          });
}

std::unique_ptr<ScriptedCamera> ClientWorld::startAndAccept()
{
    start();
    return connector.accept();
}

std::unique_ptr<ScriptedCamera> ClientWorld::startPlaying(const std::string& description, int tracks)
{
    std::unique_ptr<ScriptedCamera> camera = startAndAccept();
    camera->servePlaying(description, tracks);
    EXPECT_TRUE(events.waitPlaying());
    return camera;
}

RtspClientState ClientWorld::state()
{
    RtspClientState now = RtspClientState::idle;
    runOn(loop, [&] { now = client->state(); });
    return now;
}

bool ClientWorld::stopAndWait()
{
    Signal closed;
    runOn(loop, [&] { client->stop([&] { closed.set(); }); });
    return closed.wait();
}

}  // namespace test
}  // namespace refhost
