// Connections that start with HTTP, without sockets: tunnels, their base64, WebSocket. The first byte selects how bytes are
// split into receptions and whether users are configured. Each line "---" starts another connection; the first byte of each
// is its client's address. What is received must not depend on how bytes are split, and everything is bounded.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/net/tunnel/PostReader.h"
#include "refhost/net/websocket/WebSocketFrames.h"
#include "refhost/rtsp/connection/HttpEntrance.h"
#include "refhost/rtsp/message/RequestReader.h"
#include "tests/fuzz/InputStream.h"

namespace
{

using namespace refhost;

constexpr std::string_view connectionMark = "\n---\n";

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::cerr << what << std::endl;
        std::abort();
    }
}

SocketAddress clientAddress(char address)
{
    return *SocketAddress::parse("192.0.2." + std::to_string(address % 4 + 1));
}

std::pair<bool, std::string> readPost(std::string_view bytes, std::size_t chunk)
{
    PostReader reader("c", 16);
    std::string out;
    bool good = true;
    for (std::size_t at = 0; at < bytes.size() && good; at += chunk)
    {
        good = reader.read(bytes.substr(at, chunk), out);
    }
    require(out.size() <= bytes.size(), "base64 grows nothing");
    return {good, good ? out : ""};
}

/// What a client's frames hold and how they are answered; nothing where they violate the protocol.
std::pair<std::string, std::string> readFrames(std::string_view bytes, std::size_t chunk)
{
    WebSocketFrames frames;
    std::string payload;
    std::string answers;
    for (std::size_t at = 0; at < bytes.size(); at += chunk)
    {
        frames.read(bytes.substr(at, chunk), payload, answers);
    }
    require(payload.size() <= bytes.size(), "frames grow nothing");
    require(answers.size() <= bytes.size() + 200, "answers are no longer than what they answer");
    return frames.reads() ? std::pair(payload, answers) : std::pair<std::string, std::string>();
}

void receiveAll(ByteStream& stream, std::size_t max)
{
    char bytes[100];
    std::size_t total = 0;
    int blocked = 0;
    while (blocked < 8)
    {
        const ByteStream::Result result = stream.receive(bytes, sizeof bytes);
        require((result.status == ByteStream::Status::done) == (result.count != 0), "count");
        total += result.count;
        blocked = result.count == 0 ? blocked + 1 : 0;
    }
    require(total <= max, "more was received than sent");
}

class Entrance
{
public:
    Entrance(bool users, std::size_t chunk) : entrance_(configuration(users)), chunk_(chunk) {}
    ~Entrance()
    {
        for (const auto& stream : served_)
        {
            receiveAll(*stream, all_);
            stream->close();
        }
        entrance_.endExpired(MonotonicTime() + std::chrono::hours(1));
        served_.clear();
        for (const auto& client : clients_)
        {
            require(client->closed || refused(*client), "a connection is left");
            client->close();
        }
        clients_.clear();
        require(slots_.count() == 0, "a slot is left");
    }

    void connect(std::string_view bytes)
    {
        if (bytes.empty())
        {
            return;
        }
        const char address = bytes.front();
        bytes.remove_prefix(1);
        all_ += bytes.size();
        RequestReader::Limits limits;
        limits.http = true;
        RequestReader reader(limits);
        RtspRequest request;
        reader.feed(bytes.data(), bytes.size());
        if (reader.next(request) != RequestReader::Item::http)
        {
            return;
        }
        const std::string_view rest = reader.httpRest();
        const std::size_t split = rest.size() / 2;
        auto client =
            std::make_shared<InputStream>(std::string(rest.substr(split)), chunk_, clientAddress(address));
        clients_.push_back(client);
        auto slot = slots_.take(client->peer().key(), MonotonicTime());
        HttpEntrance::Outcome outcome = entrance_.enter(
            {reader.httpHead(), std::string(rest.substr(0, split)), client, slot}, MonotonicTime());
        require(outcome.refusal.empty() || outcome.stream == nullptr, "refused or served");
        require(outcome.refusal.empty() || outcome.refusal.rfind("HTTP/1.1 ", 0) == 0, "an HTTP response");
        if (!outcome.refusal.empty())
        {
            client->sent = outcome.refusal;
        }
        if (outcome.stream != nullptr)
        {
            served_.push_back(std::move(outcome.stream));
        }
    }

private:
    static ServerConfig configuration(bool users)
    {
        ServerConfig config;
        if (users)
        {
            config.users = {{"admin", "secret"}};
        }
        return config;
    }

    static bool refused(const InputStream& client)
    {
        return client.sent.rfind("HTTP/1.1 4", 0) == 0 || client.sent.rfind("HTTP/1.1 5", 0) == 0;
    }

    ConnectionSlots slots_{64, 64};
    HttpEntrance entrance_;
    const std::size_t chunk_;
    std::size_t all_ = 0;
    std::vector<std::shared_ptr<InputStream>> clients_;
    std::vector<std::shared_ptr<ByteStream>> served_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
    {
        return 0;
    }
    const std::size_t chunk = data[0] / 2 + 1U;
    std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    require(readPost(rest, chunk) == readPost(rest, size), "base64 depends on how it is split");
    require(readFrames(rest, chunk) == readFrames(rest, size), "frames depend on how they are split");
    Entrance entrance(data[0] % 2 == 1, chunk);
    for (;;)
    {
        const std::size_t mark = rest.find(connectionMark);
        entrance.connect(rest.substr(0, mark));
        if (mark == std::string_view::npos)
        {
            return 0;
        }
        rest.remove_prefix(mark + connectionMark.size());
    }
}
