#include "refhost/http/HttpGuard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "refhost/access/DigestAuth.h"
#include "refhost/access/SlowHash.h"
#include "refhost/base/Base64.h"
#include "refhost/config/PasswordHash.h"
#include "tests/refhost/http/HttpServiceFixture.h"

namespace refhost
{
namespace
{

using test::HttpAnswer;
using test::HttpTestClient;
using testing::HasSubstr;

class HttpGuardTest : public test::HttpServiceFixture
{
protected:
    void startWithRoutes()
    {
        for (const char* const method : {"GET", "POST", "PUT", "DELETE"})
        {
            route(method, "/open", reply, HttpAccess::open());
        }
        route("GET", "/shared", reply, HttpAccess::shared());
        route("GET", "/cameras/{camera}", reply, HttpAccess::camera(Right::live));
        route("DELETE", "/cameras/{camera}", reply, HttpAccess::camera(Right::admin));
        route("GET", "/server", reply, HttpAccess::server(Right::admin));
        start();
    }

    void addUsers()
    {
        config.users = {{"boss", "secret"}, {"guest", "guest", "", {"1-2", "none", "none", "none"}}};
    }

    static HttpReply reply(const HttpRequest& request)
    {
        return HttpReply::of("text/plain", "user " + request.user);
    }

    static std::string as(const std::string& user, const std::string& password)
    {
        const std::string pair = user + ":" + password;
        return "Authorization: Basic " +
               base64Of(reinterpret_cast<const unsigned char*>(pair.data()), pair.size()) + "\r\n";
    }

    int statusWithHost(const std::string& host) const
    {
        HttpTestClient client(service->port());
        client.send("GET /open HTTP/1.1\r\n" + host + "\r\n");
        return client.answer().status;
    }

    int statusOf(const std::string& method, const std::string& target, const std::string& headers) const
    {
        HttpTestClient client(service->port());
        return client.request(method, target, headers).status;
    }
};

TEST_F(HttpGuardTest, OnlyNamesOfTheServerAreHosts)
{
    config.http.names = "cam.example, Other.example";
    startWithRoutes();
    for (const char* const host : {"127.0.0.1", "127.0.0.1:8080", "[::1]:8080", "localhost", "LOCALHOST:1",
                                   "192.0.2.7", "cam.example", "CAM.example:80", "other.example"})
    {
        EXPECT_EQ(statusWithHost("Host: " + std::string(host) + "\r\n"), 200) << host;
    }
    for (const char* const host :
         {"evil.example", "cam.example.evil.example", "127.0.0.1.evil.example", "[::1", "*"})
    {
        EXPECT_EQ(statusWithHost("Host: " + std::string(host) + "\r\n"), 421) << host;
    }
    EXPECT_EQ(statusWithHost(""), 400);
    EXPECT_EQ(statusWithHost("Host: localhost\r\nHost: localhost\r\n"), 400);
}

TEST_F(HttpGuardTest, AnyNameIsAHostWhereConfigured)
{
    config.http.names = "*";
    startWithRoutes();
    EXPECT_EQ(statusWithHost("Host: whatever.example\r\n"), 200);
}

TEST_F(HttpGuardTest, PagesOfOtherSitesChangeNothing)
{
    startWithRoutes();
    const std::string json = "Content-Type: application/json\r\n";
    for (const char* const method : {"POST", "PUT", "DELETE"})
    {
        EXPECT_EQ(statusOf(method, "/open", json), 200) << method;
        EXPECT_EQ(
            statusOf(method, "/open", json + "Origin: http://127.0.0.1\r\nSec-Fetch-Site: same-origin\r\n"),
            200)
            << method;
        for (const char* const headers :
             {"Origin: http://evil.example\r\n", "Origin: null\r\n", "Origin: \r\n",
              "Sec-Fetch-Site: cross-site\r\n", "Sec-Fetch-Site: same-site\r\n"})
        {
            EXPECT_EQ(statusOf(method, "/open", json + headers), 403) << method << ' ' << headers;
        }
    }
    EXPECT_EQ(statusOf("GET", "/open", "Origin: http://evil.example\r\n"), 200);
    EXPECT_EQ(statusOf("POST", "/open", ""), 415);
    EXPECT_EQ(statusOf("POST", "/open", "Content-Type: text/plain\r\n"), 415);
    EXPECT_EQ(statusOf("POST", "/open", "Content-Type: application/json; charset=utf-8\r\n"), 200);
}

TEST_F(HttpGuardTest, WithoutUsersOnlyThisMachineMayChangeSomething)
{
    make();
    const HttpGuard guard(config, *users);
    HttpRequest request;
    request.head.method = "DELETE";
    request.head.fields = {{"Host", "192.0.2.1"}};
    request.peer = *SocketAddress::parse("192.0.2.9");
    const auto refusal = guard.refuseOrigin(request);
    ASSERT_TRUE(refusal.has_value());
    EXPECT_EQ(refusal->status, 403);
    request.peer = *SocketAddress::parse("127.0.0.1");
    EXPECT_FALSE(guard.refuseOrigin(request).has_value());
    request.head.method = "GET";
    request.peer = *SocketAddress::parse("192.0.2.9");
    EXPECT_FALSE(guard.refuseOrigin(request).has_value());
}

TEST_F(HttpGuardTest, WithoutUsersEverybodyMayReadEverything)
{
    startWithRoutes();
    for (const char* const path : {"/open", "/shared", "/cameras/1", "/server"})
    {
        EXPECT_EQ(get(path).status, 200) << path;
    }
}

TEST_F(HttpGuardTest, UsersHaveTheirRights)
{
    addUsers();
    startWithRoutes();
    struct Case
    {
        const char* path;
        int nobody;
        int guest;
        int boss;
    };
    for (const Case& each :
         {Case{"/open", 200, 200, 200}, Case{"/shared", 401, 200, 200}, Case{"/cameras/1", 401, 200, 200},
          Case{"/cameras/3", 401, 403, 200}, Case{"/cameras/x", 401, 403, 200},
          Case{"/cameras/99999999999", 401, 403, 200}, Case{"/server", 401, 403, 200}})
    {
        EXPECT_EQ(get(each.path).status, each.nobody) << each.path;
        EXPECT_EQ(get(each.path, as("guest", "guest")).status, each.guest) << each.path;
        EXPECT_EQ(get(each.path, as("boss", "secret")).status, each.boss) << each.path;
        EXPECT_EQ(get(each.path, as("boss", "wrong")).status, 401) << each.path;
    }
    EXPECT_EQ(statusOf("DELETE", "/cameras/1", as("guest", "guest")), 403);
    EXPECT_EQ(statusOf("DELETE", "/cameras/1", as("boss", "secret")), 200);
    EXPECT_EQ(get("/open", as("boss", "secret")).body, "user boss");
}

TEST_F(HttpGuardTest, AnonymousClientsHaveTheRightsOfThatUser)
{
    addUsers();
    config.users.push_back({"anonymous", "", "", {"2", "none", "none", "none"}});
    startWithRoutes();
    EXPECT_EQ(get("/shared").status, 200);
    EXPECT_EQ(get("/cameras/2").status, 200);
    EXPECT_EQ(get("/cameras/1").status, 401);
    EXPECT_EQ(get("/cameras/1", as("guest", "guest")).status, 200);
}

TEST_F(HttpGuardTest, AChallengeOffersEachKindOfDigestOnceAndBasic)
{
    addUsers();
    startWithRoutes();
    const HttpAnswer answer = get("/server");
    ASSERT_EQ(answer.status, 401);
    std::vector<std::string> offers;
    const auto range = answer.fields.equal_range("www-authenticate");
    for (auto each = range.first; each != range.second; ++each)
    {
        offers.push_back(each->second);
    }
    ASSERT_EQ(offers.size(), 3U);
    EXPECT_THAT(offers,
                testing::UnorderedElementsAre(HasSubstr("algorithm=MD5"), HasSubstr("algorithm=SHA-256"),
                                              HasSubstr("Basic realm=\"ovrtspd\"")));
}

TEST_F(HttpGuardTest, DigestLogsIn)
{
    addUsers();
    startWithRoutes();
    HttpTestClient client(service->port());
    const std::string offer = client.get("/server").field("www-authenticate");
    const std::size_t from = offer.find("nonce=\"") + 7;
    const std::string nonce = offer.substr(from, offer.find('"', from) - from);
    using Algorithm = DigestAuth::Algorithm;
    const std::string secret = DigestAuth::hash(Algorithm::md5, "boss:ovrtspd:secret");
    const std::string request = DigestAuth::hash(Algorithm::md5, "GET:/server");
    const std::string response =
        DigestAuth::hash(Algorithm::md5, secret + ":" + nonce + ":00000001:abc:auth:" + request);
    const std::string header =
        "Authorization: Digest username=\"boss\", realm=\"ovrtspd\", nonce=\"" + nonce +
        "\", uri=\"/server\", algorithm=MD5, qop=auth, nc=00000001, cnonce=\"abc\", response=\"" + response +
        "\"\r\n";
    EXPECT_EQ(client.get("/server", header).body, "user boss");
    EXPECT_EQ(client.get("/server", header).status, 401);  // a replay
}

TEST_F(HttpGuardTest, BasicNeedsThePermissionOfTheConfiguration)
{
    addUsers();
    config.auth.basic = "never";
    startWithRoutes();
    EXPECT_EQ(get("/server", as("boss", "secret")).status, 401);
}

TEST_F(HttpGuardTest, BasicIsAcceptedFromThisMachineWithoutTls)
{
    addUsers();
    config.auth.basic = "tls-only";
    startWithRoutes();
    EXPECT_EQ(get("/server", as("boss", "secret")).status, 200);
    const HttpGuard guard(config, *users);
    HttpRequest request;
    request.head.method = "GET";
    request.head.target = "/server";
    const std::string header = as("boss", "secret");
    request.head.fields = {{"Host", "192.0.2.1"}, {"Authorization", header.substr(15, header.size() - 17)}};
    request.peer = *SocketAddress::parse("192.0.2.9");
    ConnectionLogin login(*users);
    EXPECT_TRUE(guard.checkUser(request, login, HttpAccess::open()).refusal.has_value());
    request.encrypted = true;
    EXPECT_FALSE(guard.checkUser(request, login, HttpAccess::open()).refusal.has_value());
}

TEST_F(HttpGuardTest, APasswordThatIsKeptAsASlowHashLogsIn)
{
    addUsers();
    PasswordHash hash;
    hash.crypt = SlowHash::make("secret");
    config.users[0].password.clear();
    config.users[0].passwordHash = hash.text();
    startWithRoutes();
    HttpTestClient client(service->port());
    const std::string right = as(config.users[0].name, "secret");
    EXPECT_EQ(client.get("/open", right).status, 200);
    EXPECT_EQ(client.get("/open", as(config.users[0].name, "wrong")).status, 401);
    EXPECT_EQ(client.get("/open", right).status, 200) << "on the same connection";
}

TEST_F(HttpGuardTest, WhoGuessesWaitsAndIsThenRefused)
{
    addUsers();
    config.auth.exemptLoopback = false;
    config.auth.freeFailures = 1;
    config.auth.maxDelay = 1;
    config.auth.refuseAfter = 3;
    startWithRoutes();
    int attempts = 0;
    HttpAnswer answer = get("/open", as("boss", "wrong"));
    for (; answer.status == 401 && attempts < 10; ++attempts)
    {
        answer = get("/open", as("boss", "wrong"));
    }
    EXPECT_EQ(answer.status, 429);
    EXPECT_EQ(attempts, 3);
    EXPECT_GT(std::stoi(answer.field("retry-after")), 0);
    EXPECT_EQ(get("/open", as("boss", "secret")).status, 429) << "whatever the password";
    EXPECT_EQ(get("/open").status, 200) << "what needs no login is not held up";
}

}  // namespace
}  // namespace refhost
