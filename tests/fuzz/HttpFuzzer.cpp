// Requests to the HTTP service, without sockets: parsing, paths and queries, who may send them. The first byte selects how
// bytes are split. What is read must not depend on that; every refusal is an error that HTTP has; everything is bounded.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "refhost/http/HttpGuard.h"
#include "refhost/http/HttpRequestReader.h"
#include "refhost/http/HttpRouter.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/http/RecordedQuery.h"

namespace
{

using namespace refhost;

constexpr HttpRequestReader::Limits limits{2048, 1024};
constexpr std::size_t maxRequests = 64;

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::cerr << what << std::endl;
        std::abort();
    }
}

std::string textOf(const HttpRequest& request)
{
    std::string text = request.head.method + " " + request.head.target + "\n";
    for (const auto& [name, value] : request.head.fields)
    {
        text.append(name).append(":").append(value).append("\n");
    }
    return text + "\n" + request.body;
}

/// The requests of a client up to the first that is none, and the status that refuses that; 0: there is none.
struct Read
{
    std::vector<HttpRequest> requests;
    std::vector<std::string> texts;
    int status = 0;
};

Read readAll(std::string_view bytes, std::size_t chunk)
{
    Read all;
    HttpRequestReader reader(limits);
    std::string input;
    while (all.requests.size() < maxRequests)
    {
        std::size_t used = 0;
        const HttpRequestReader::State state = reader.read(input, used);
        require(used <= input.size(), "no more is used than came");
        input.erase(0, used);
        if (state == HttpRequestReader::State::failed)
        {
            all.status = reader.status();
            break;
        }
        if (state == HttpRequestReader::State::complete)
        {
            all.requests.push_back(reader.take());
            all.texts.push_back(textOf(all.requests.back()));
            require(all.requests.back().body.size() <= limits.bodyBytes, "the body is bounded");
            continue;
        }
        require(input.size() <= limits.headerBytes + chunk, "what waits is bounded");
        if (bytes.empty())
        {
            break;
        }
        input.append(bytes.substr(0, chunk));
        bytes.remove_prefix(std::min(chunk, bytes.size()));
    }
    return all;
}

class World
{
public:
    World() : users_(config(), HostClock::system()), guard_(config(), users_)
    {
        const auto add = [this](const char* method, const char* pattern, HttpAccess access) {
            router_.add({method, pattern, access, [](const HttpRequest&) { return HttpReply::empty(); }});
        };
        add("GET", "/open", HttpAccess::open());
        add("GET", "/cameras/{camera}", HttpAccess::camera(Right::live));
        add("POST", "/cameras/{camera}/{what}", HttpAccess::camera(Right::admin));
        add("DELETE", "/all", HttpAccess::server(Right::admin));
    }

    void dispatch(HttpRequest request) const
    {
        if (const auto refusal = guard_.refuseOrigin(request))
        {
            check(*refusal);
            return;
        }
        const auto target = HttpTarget::parse(request.head.target);
        if (!target)
        {
            return;
        }
        for (const auto& [name, value] : target->query)
        {
            JsonDocument::timeOf(value);
            RecordedQuery::place(value);
        }
        RecordedSocket::Options recorded;
        if (RecordedQuery::read(*target, recorded).empty())
        {
            const auto& [start, end, backwards] =
                std::tie(recorded.request.start, recorded.request.end, recorded.request.backwards);
            require(!end || (backwards ? *end < start : *end > start), "an interval has a length");
            require(recorded.request.keyDistance > Duration::zero(), "key frames have a distance");
        }
        request.peer = loopback();
        request.target = *target;
        const HttpRouter::Match match = router_.find(request.head.method, target->segments);
        if (match.route == nullptr)
        {
            return;
        }
        request.parts = match.parts;
        ConnectionLogin login(users_);
        const HttpGuard::Finding finding = guard_.checkUser(request, login, match.route->access);
        require(!finding.again, "there is nothing to wait for");
        require(request.signIn.empty(), "nobody guesses a cookie");
        if (finding.refusal)
        {
            check(*finding.refusal);
            return;
        }
        require(!request.user.empty() || match.route->access.kind == HttpAccess::Kind::open,
                "nobody logged in");
    }

private:
    /// The brake exempts it.
    static SocketAddress loopback()
    {
        return *SocketAddress::parse("127.0.0.1");
    }

    static const ServerConfig& config()
    {
        static const ServerConfig made = []
        {
            ServerConfig config;
            config.users = {{"boss", "secret"}, {"guest", "guest", "", {"1", "", "", ""}}};
            config.auth.basic = "always";
            return config;
        }();
        return made;
    }

    static void check(const HttpReply& reply)
    {
        require(reply.status >= 400 && reply.status < 500, "a refusal is the client's fault");
        const std::string head = reply.headText(false, true);
        require(head.find("\r\n\r\n") == head.size() - 4, "the head ends where it ends");
    }

    mutable UserAccess users_;
    const HttpGuard guard_;
    HttpRouter router_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
    {
        return 0;
    }
    static const World world;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const Read split = readAll(bytes, data[0] % 64 + 1);
    const Read whole = readAll(bytes, 1);
    require(split.texts == whole.texts, "the split changes nothing");
    for (const HttpRequest& request : split.requests)
    {
        world.dispatch(request);
    }
    return 0;
}
