// Any bytes from a client, through reader, methods, sessions, the library and the dispatch of every route, without
// sockets. No request may be answered 500. The first byte selects how the rest is split into receptions, whether users
// are configured and whether scripted recordings get ready. After each line "---" the server runs: frames arrive, and
// SSSSSSSSSSSSSSSS is replaced by the newest session's id.
#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "refhost/base/HostStatus.h"
#include "refhost/live/LiveDispatcher.h"
#include "refhost/live/LiveSessionDispatcher.h"
#include "refhost/rtsp/session/RequestHandler.h"
#include "tests/fuzz/ServerWorld.h"

namespace
{

using namespace refhost;
using test::require;
using test::ServerWorld;

SocketAddress loopback()
{
    return *SocketAddress::parse("127.0.0.1");
}

constexpr std::string_view stepMark = "\n---\n";
constexpr std::string_view sessionMark = "SSSSSSSSSSSSSSSS";

/// Requires one well-formed response, without header lines injected by the client and without a server error.
void requireResponse(std::string_view response)
{
    require(response.substr(0, 9) == "RTSP/1.0 ", "status line");
    require(response.substr(9, 3) != "500", "no request may answer 500");
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

/// Receives what a connection would send.
class FuzzConnection : public ClientConnection,
                       public FrameWriter,
                       public std::enable_shared_from_this<FuzzConnection>
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
    const SocketAddress address_ = loopback();
};

/// One connection of a server.
class RtspServerUnderTest
{
public:
    /// \param neverReady  recordings do not find their position in time
    RtspServerUnderTest(bool users, bool neverReady)
        : services_(ServerWorld::instance().services(users)), neverReady_(neverReady)
    {
        script_.calls.clear();
    }

    ~RtspServerUnderTest()
    {
        handler_.connectionEnded();
        services_->sessions.endAll();
        require(services_->sessions.count() == 0, "a session is left");
        require(LiveDispatcher::instance().trackCount() == 0, "a track is left");
        require(LiveSessionDispatcher::instance().sessionCount() == 0,
                "a session of the second dispatcher is left");
        require(OVAudioBackDispatcherMgr::getInstance()->getSessionNum() == 0, "a talk-back session is left");
        require(services_->multicast->groupsTaken() == 0, "a group is left");
        require(script_.living == 0, "a controller is left");
    }

    void receive(std::string bytes, std::size_t chunk)
    {
        if (!connection_->session.empty())
        {
            for (std::size_t at = bytes.find(sessionMark); at != std::string::npos;
                 at = bytes.find(sessionMark, at))
            {
                bytes.replace(at, sessionMark.size(), connection_->session);
            }
        }
        for (std::size_t at = 0; at < bytes.size() && !ended_; at += chunk)
        {
            // From memory of its own, so that the sanitizer finds a view that outlives its bytes.
            const std::string part = bytes.substr(at, chunk);
            reader_.feed(part.data(), part.size());
            handle();
            require(reader_.kept() <= 16384 + 65536 + 65540, "the reader keeps too much");
        }
        ServerWorld::instance().feed();
    }

private:
    void handle()
    {
        RequestReader::Item item = reader_.next(request_);
        for (; item != RequestReader::Item::none && !ended_; item = reader_.next(request_))
        {
            const std::size_t before = connection_->responses;
            script_.result("play", hostStreamNotReady);
            if (item == RequestReader::Item::frame)
            {
                handler_.received(reader_.frame());
                require(connection_->responses == before, "a frame is not answered");
                continue;
            }
            RequestHandler::Result result = item == RequestReader::Item::malformed
                                                ? handler_.reject(request_, reader_.problem(), writer_)
                                                : handler_.handle(request_, writer_, false);
            if (result == RequestHandler::Result::delayed)
            {
                require(connection_->responses == before, "a request that is delayed is not answered");
                reader_.putBack();
                result = again(false);
                require(result != RequestHandler::Result::delayed, "a request is delayed once");
            }
            if (result == RequestHandler::Result::notReady)
            {
                require(connection_->responses == before, "a request that waits is not answered");
                reader_.putBack();
                script_.result("play", neverReady_ ? hostStreamNotReady : 0);
                result = again(false);
                // A real recording finds its position on a worker's thread.
                for (int i = 0; result == RequestHandler::Result::notReady && waits() && i < maxWaits; ++i)
                {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    reader_.putBack();
                    result = again(false);
                }
                if (result == RequestHandler::Result::notReady)
                {
                    reader_.putBack();
                    result = again(true);
                }
            }
            require(result != RequestHandler::Result::notReady, "the last try answers");
            require(connection_->responses == before + 1, "one response for one request");
            ended_ = result == RequestHandler::Result::answeredLast;
        }
    }

    RequestHandler::Result again(bool lastTry)
    {
        require(reader_.next(request_) == RequestReader::Item::request, "the request comes again");
        return handler_.handle(request_, writer_, lastTry);
    }

    bool waits() const
    {
        return request_.uri.find("orv/playback/") != std::string_view::npos;
    }

    static constexpr int maxWaits = 2000;

    const std::unique_ptr<RtspServices> services_;
    const std::shared_ptr<FuzzConnection> connection_ = std::make_shared<FuzzConnection>();
    RequestHandler handler_{*services_, *connection_};
    RequestReader reader_{RequestReader::Limits()};
    RtspRequest request_;
    ResponseWriter writer_;
    test::RecordingScript& script_ = *ServerWorld::instance().script;
    const bool neverReady_;
    bool ended_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ServerWorld::instance();
    if (size == 0)
    {
        return 0;
    }
    const std::size_t chunk = data[0] < 128 ? 65536 : data[0] - 127u;
    RtspServerUnderTest server(data[0] % 2 == 1, data[0] % 4 > 1);
    std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    for (;;)
    {
        const std::size_t mark = rest.find(stepMark);
        server.receive(std::string(rest.substr(0, mark)), chunk);
        if (mark == std::string_view::npos)
        {
            return 0;
        }
        rest.remove_prefix(mark + stepMark.size());
    }
}
