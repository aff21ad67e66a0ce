#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>

#include "refhost/base/Base64.h"
#include "tests/CapturedErrors.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::TestClient;
using test::UdpPort;

std::string base64(const std::string& text)
{
    return base64Of(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

// Each test has an address of its own, which has its own lines of the log.
class RtspServerAuditTest : public test::RtspServerFixture
{
protected:
    void serve(bool users)
    {
        if (users)
        {
            config.users = {{"admin", "secret"}};
        }
        config.auth.basic = "always";
        start();
    }

    std::unique_ptr<TestClient> connect(const char* from) const
    {
        return std::make_unique<TestClient>(server->port(), 0, AF_INET, from);
    }

    /// The only line with `part`, from "audit: " on.
    static std::string lineWith(CapturedErrors& errors, const std::string& part)
    {
        const auto lines = errors.linesWith(part);
        return lines.size() == 1 ? lines[0].substr(lines[0].find("audit: "))
                                 : std::to_string(lines.size()) + " lines";
    }
};

TEST_F(RtspServerAuditTest, ASessionsStartAndEndAreLogged)
{
    serve(false);
    CapturedErrors errors;
    const auto client = connect("127.0.5.1");
    const std::string id = setUpTcp(*client);
    EXPECT_EQ(client->request("PLAY", url(), session(id)).status, 200);
    frame(true, 3);
    client->frame(0);
    EXPECT_EQ(client->request("TEARDOWN", url(), session(id)).status, 200);
    EXPECT_EQ(lineWith(errors, "session-started address=127.0.5.1"),
              "audit: session-started address=127.0.5.1 user=\"\" url=\"" + url() + "\" transport=tcp");
    const std::string ended = lineWith(errors, "session-ended address=127.0.5.1");
    EXPECT_TRUE(std::regex_match(
        ended, std::regex("audit: session-ended address=127\\.0\\.5\\.1 user=\"\" url=\"" + url() +
                          "\" transport=tcp milliseconds=\\d+ bytes=[1-9]\\d* lost=0")))
        << ended;
}

TEST_F(RtspServerAuditTest, SessionsThatEndOtherwiseAreLoggedToo)
{
    serve(true);
    CapturedErrors errors;
    const std::string admin = "Authorization: Basic " + base64("admin:secret") + "\r\n";
    auto tcpClient = connect("127.0.5.2");
    EXPECT_EQ(tcpClient->request("SETUP", track(url(), 0), tcp + admin).status, 200);
    tcpClient->close();
    UdpPort port;
    auto udpClient = connect("127.0.5.3");
    EXPECT_EQ(
        udpClient->request("SETUP", track(url(), 0), udpPorts + std::to_string(port.port()) + "\r\n" + admin)
            .status,
        200);
    ASSERT_TRUE(eventually([this] { return server->sessionCount() == 1; }));
    server->stop();
    EXPECT_NE(lineWith(errors, "session-ended address=127.0.5.2").find("user=\"admin\" "), std::string::npos);
    EXPECT_NE(lineWith(errors, "session-ended address=127.0.5.3").find(" transport=udp "), std::string::npos);
}

TEST_F(RtspServerAuditTest, ASetupThatFailsStartsNoSession)
{
    serve(false);
    CapturedErrors errors;
    const auto client = connect("127.0.5.4");
    EXPECT_EQ(client->request("SETUP", track(url(), 9), tcp).status, 404);
    EXPECT_EQ(errors.linesWith("audit: ").size(), 0u);
}

TEST_F(RtspServerAuditTest, AFailedLoginIsLoggedWithItsReason)
{
    serve(true);
    struct Case
    {
        const char* address;
        std::string credentials;
        std::string logged;
    };
    const Case cases[] = {
        {"127.0.6.1", "Basic " + base64("admin:wrong"), "user=\"admin\" reason=password"},
        {"127.0.6.2", "Basic " + base64("nobody:secret"), "user=\"nobody\" reason=user"},
        {"127.0.6.3", "Basic " + base64("x\" address=9.9.9.9\n:y"),
         "user=\"x\\x22 address=9.9.9.9\\x0a\" reason=user"},
        {"127.0.6.4", "Basic !", "user=\"\" reason=malformed"},
        {"127.0.6.5", "Bearer secret", "user=\"\" reason=scheme"},
        {"127.0.6.6", R"(Digest username="admin", realm="r", nonce="n", uri="u", response="0")",
         "user=\"admin\" reason=realm"},
    };
    for (const Case& c : cases)
    {
        CapturedErrors errors;
        const auto client = connect(c.address);
        EXPECT_EQ(client->request("DESCRIBE", url(), "Authorization: " + c.credentials + "\r\n").status, 401);
        const std::string start = std::string("authentication-failed address=") + c.address;
        EXPECT_EQ(lineWith(errors, start), "audit: " + start + " " + c.logged + " url=\"" + url() + "\"");
        EXPECT_EQ(errors.linesWith("secret").size(), 0u);
    }
}

TEST_F(RtspServerAuditTest, RequestsWithoutCredentialsAreNotLogged)
{
    serve(true);
    CapturedErrors errors;
    EXPECT_EQ(connect("127.0.5.5")->request("DESCRIBE", url()).status, 401);
    EXPECT_EQ(errors.linesWith("audit: ").size(), 0u);
}

TEST_F(RtspServerAuditTest, AChangeOfTheUsersIsLogged)
{
    serve(true);
    CapturedErrors errors;
    server->setUsers({{"admin", "other"}}, {});
    EXPECT_EQ(lineWith(errors, "audit: "), "audit: configuration-changed what=users");
}

TEST_F(RtspServerAuditTest, AConnectionBeyondTheLimitIsLogged)
{
    config.limits.connectionsPerAddress = 1;
    serve(false);
    CapturedErrors errors;
    const auto first = connect("127.0.5.6");
    EXPECT_EQ(first->request("OPTIONS", url()).status, 200);
    const auto second = connect("127.0.5.6");
    EXPECT_EQ(second->request("OPTIONS", url()).status, 503);
    EXPECT_EQ(lineWith(errors, "audit: "), "audit: connection-refused address=127.0.5.6 limit=connections");
}

}  // namespace
}  // namespace refhost
