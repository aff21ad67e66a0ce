// Any bytes from a client, through reader, verbs, sessions, the library and the dispatch; only the socket is
// missing. The first byte says how the rest is cut into receptions, whether users are configured and
// whether recordings get ready. Behind
// each line "---" the server has got to work: pictures come, and SSSSSSSSSSSSSSSS stands for the newest
// session's id.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "live/OVLiveControllerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/Log.h"
#include "refhost/live/LiveDispatcher.h"
#include "refhost/rtsp/RequestHandler.h"
#include "tests/refhost/rtsp/FakeRecording.h"
#include "tests/refhost/rtsp/FrontStreams.h"

namespace
{

using namespace refhost;

constexpr std::string_view stepMark = "\n---\n";
constexpr std::string_view sessionMark = "SSSSSSSSSSSSSSSS";

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

/// Requires one well-formed response: no header line that the client could have forged in.
void requireResponse(std::string_view response)
{
    require(response.substr(0, 9) == "RTSP/1.0 ", "status line");
    const std::size_t headEnd = response.find("\r\n\r\n");
    require(headEnd != std::string_view::npos, "end of the head");
    std::size_t bodySize = 0;
    std::string_view head = response.substr(0, headEnd + 2);
    for (bool first = true; !head.empty(); first = false)
    {
        const std::size_t end = head.find("\r\n");
        const std::string_view line = head.substr(0, end);
        require(line.find_first_of("\r\n") == std::string_view::npos, "bare line end");
        const std::size_t colon = line.find(": ");
        require(first || (colon != std::string_view::npos && colon > 0), "header line");
        if (line.substr(0, 16) == "Content-Length: ")
        {
            bodySize = std::stoul(std::string(line.substr(16)));
        }
        head.remove_prefix(end + 2);
    }
    require(response.size() == headEnd + 4 + bodySize, "length of the response");
}

/// Takes what a connection would send.
class FuzzLink : public ClientLink, public FrameWriter, public std::enable_shared_from_this<FuzzLink>
{
public:
    void sendResponse(std::string_view response) override
    {
        requireResponse(response);
        ++responses;
        const std::size_t at = response.find("\r\nSession: ");
        if (at != std::string_view::npos)
        {
            session = std::string(response.substr(at + 11, sessionMark.size()));
        }
    }

    void flush() override {}

    SendStatus writeFrames(const std::uint8_t* data, std::size_t size, bool) override
    {
        while (size > 0)
        {
            require(size >= 4 && data[0] == '$', "interleaved frame");
            const std::size_t length = static_cast<std::size_t>(data[2]) << 8 | data[3];
            require(size >= 4 + length, "length of a frame");
            data += 4 + length;
            size -= 4 + length;
        }
        return SendStatus::sent;
    }

    void notifyWhenWritable(std::weak_ptr<TransportListener>) override {}

    std::weak_ptr<FrameWriter> frameWriter() override
    {
        return std::static_pointer_cast<FrameWriter>(shared_from_this());
    }

    const SocketAddress& peer() const override
    {
        return address_;
    }

    const SocketAddress& local() const override
    {
        return address_;
    }

    std::uint64_t serial() const override
    {
        return 1;
    }

    std::size_t responses = 0;
    std::string session;

private:
    const SocketAddress address_;
};

/// A recording that is only ever asked for what it has.
class FuzzRecording : public test::FakeRecording
{
public:
    using FakeRecording::FakeRecording;

    int setPlayRange(const std::string& sessionId, const std::string& trackId, double begin, double end,
                     int kind, bool toRange) override
    {
        require(!toRange || (begin >= 0 && begin < end && end <= test::RecordingScript::seconds),
                "play range");
        return FakeRecording::setPlayRange(sessionId, trackId, begin, end, kind, toRange);
    }

    int setPauseRange(const std::string& sessionId, const std::string& trackId, double instant) override
    {
        require(instant >= 0 && instant <= test::RecordingScript::seconds, "pause point");
        return FakeRecording::setPauseRange(sessionId, trackId, instant);
    }

    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                 double speed) override
    {
        require(PlaySpeed::used(scale, speed) == PlaySpeed{scale, speed}, "speed");
        return FakeRecording::setSpeed(sessionId, trackId, scale, speed);
    }
};

class FuzzRecordingFactory : public IRTSPControllerFactory
{
public:
    explicit FuzzRecordingFactory(std::shared_ptr<test::RecordingScript> script) : script_(std::move(script))
    {
    }

    int createMedia(const std::string&, SafePointer<IRTSPController>& out, bool) override
    {
        out = SafePointer<IRTSPController>(new FuzzRecording(script_));
        return 0;
    }

private:
    const std::shared_ptr<test::RecordingScript> script_;
};

/// The library's factory with two streams, one of which never gets ready, and a recording.
class World
{
public:
    static World& instance()
    {
        static World* const world = new World;
        return *world;
    }

    MediaRoutes routes;
    std::shared_ptr<test::FrontStreams> streams = std::make_shared<test::FrontStreams>();
    std::shared_ptr<test::RecordingScript> recording = std::make_shared<test::RecordingScript>();

    void picture()
    {
        time_ += 3600;
        const std::int64_t captureNs = 1'700'000'000'000'000'000 + std::int64_t{time_} * 11111;
        streams->streams[0]->feed("trackID=0", test::makeUnit(time_, captureNs, time_ % 7200 == 0, 3));
        streams->streams[0]->feed("trackID=1", test::makeUnit(time_, captureNs, true, 1, 160, 160));
    }

private:
    World()
    {
        Log::setLevel(Log::Level::off);
        MediaUrlFactoryMap::getInstance()->registerFactory(
            1, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
        const SafePointer<OVLiveControllerFactory> live(new OVLiveControllerFactory);
        live->setThirdPlatType(1);
        routes.addWithTalkBack(
            "orv/live", live,
            [](const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out)
            { return LiveDispatcher::instance().firstPacketOfPlay(sessionId, trackId, out); });
        routes.addRecorded("orv/playback",
                           SafePointer<IRTSPControllerFactory>(new FuzzRecordingFactory(recording)));
        streams->streams[1]->description = StreamSource::Description::starting;
        Device::setStreams(streams);
    }

    std::uint32_t time_ = 0;
};

/// One connection of a server.
class Front
{
public:
    /// \param neverReady  recordings do not find their place in time
    Front(bool users, bool neverReady)
        : services_(configuration(users), World::instance().routes, steadyMilliseconds),
          neverReady_(neverReady)
    {
        recording_.calls.clear();
    }

    ~Front()
    {
        handler_.linkEnded();
        services_.sessions.endAll();
        require(services_.sessions.count() == 0, "a session is left");
        require(LiveDispatcher::instance().trackCount() == 0, "a track is left");
        require(recording_.living == 0, "a controller is left");
    }

    void receive(std::string bytes, std::size_t chunk)
    {
        if (!link_->session.empty())
        {
            for (std::size_t at = bytes.find(sessionMark); at != std::string::npos;
                 at = bytes.find(sessionMark, at))
            {
                bytes.replace(at, sessionMark.size(), link_->session);
            }
        }
        for (std::size_t at = 0; at < bytes.size() && !ended_; at += chunk)
        {
            // From memory of its own, so that a view that outlives its bytes is found.
            const std::string part = bytes.substr(at, chunk);
            reader_.feed(part.data(), part.size());
            handle();
            require(reader_.kept() <= 16384 + 65536 + 65540, "the reader keeps too much");
        }
        World::instance().picture();
    }

private:
    static ServerConfig configuration(bool users)
    {
        ServerConfig config;
        config.limits.sessions = 8;
        if (users)
        {
            config.users = {{"admin", "secret"}};
        }
        return config;
    }

    void handle()
    {
        RequestReader::Item item = reader_.next(request_);
        for (; item != RequestReader::Item::none && !ended_; item = reader_.next(request_))
        {
            const std::size_t before = link_->responses;
            recording_.result("play", hostStreamNotReady);
            if (item == RequestReader::Item::frame)
            {
                handler_.received(reader_.frame());
                require(link_->responses == before, "a frame is not answered");
                continue;
            }
            RequestHandler::Result result = item == RequestReader::Item::malformed
                                                ? handler_.reject(request_, reader_.problem(), writer_)
                                                : handler_.handle(request_, writer_, false);
            if (result == RequestHandler::Result::notReady)
            {
                require(link_->responses == before, "a request that waits is not answered");
                reader_.putBack();
                recording_.result("play", neverReady_ ? hostStreamNotReady : 0);
                require(reader_.next(request_) == RequestReader::Item::request, "the request comes again");
                result = handler_.handle(request_, writer_, true);
            }
            require(result != RequestHandler::Result::notReady, "the last try answers");
            require(link_->responses == before + 1, "one response for one request");
            ended_ = result == RequestHandler::Result::answeredLast;
        }
    }

    FrontServices services_;
    const std::shared_ptr<FuzzLink> link_ = std::make_shared<FuzzLink>();
    RequestHandler handler_{services_, *link_};
    RequestReader reader_{RequestReader::Limits()};
    RtspRequest request_;
    ResponseWriter writer_;
    test::RecordingScript& recording_ = *World::instance().recording;
    const bool neverReady_;
    bool ended_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    World::instance();
    if (size == 0)
    {
        return 0;
    }
    const std::size_t chunk = data[0] < 128 ? 65536 : data[0] - 127u;
    Front front(data[0] % 2 == 1, data[0] % 4 > 1);
    std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    for (;;)
    {
        const std::size_t mark = rest.find(stepMark);
        front.receive(std::string(rest.substr(0, mark)), chunk);
        if (mark == std::string_view::npos)
        {
            return 0;
        }
        rest.remove_prefix(mark + stepMark.size());
    }
}
