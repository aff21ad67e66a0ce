#include <memory>
#include <string>
#include <vector>

#include "refhost/access/DigestAuth.h"
#include "refhost/access/SlowHash.h"
#include "refhost/config/PasswordHash.h"
#include "refhost/net/tls/SelfSignedCertificate.h"
#include "tests/refhost/rtsp/connection/RightsFixture.h"

namespace refhost
{
namespace test
{
namespace
{

class RtspServerRightsTest : public RightsFixture
{
protected:
    void startWith(const std::vector<UserConfig>& users, const std::vector<GroupConfig>& groups = {})
    {
        config.users = users;
        config.groups = groups;
        start();
    }

    /// Sets a track of a presentation up over TCP and plays it. \returns the session's id
    std::string watch(TestClient& client, const std::string& name, const std::string& path,
                      const std::string& track = "trackID=0")
    {
        const Received setup = client.request("SETUP", url(path) + "/" + track, tcp + login(name));
        EXPECT_EQ(setup.status, 200);
        EXPECT_EQ(client.request("PLAY", url(path), session(setup.session()) + login(name)).status, 200);
        return setup.session();
    }

    int play(TestClient& client, const std::string& name, const std::string& path, const std::string& id)
    {
        return client.request("PLAY", url(path), session(id) + login(name)).status;
    }
};

TEST_F(RtspServerRightsTest, WhatAUserMayNotWatchIsForbiddenWhetherItExistsOrNot)
{
    startWith({user("a", {"1", "", "", ""}), user("b", {})});
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url("orv/live/1/0"), login("a")).status, 200);
    EXPECT_EQ(client.request("DESCRIBE", url("orv/live/1/7"), login("a")).status, 404);
    for (const char* const path : {"orv/live/2/0", "orv/live/3/0", "orv/live/-1/0", "orv/live/x/0",
                                   "orv/live/1", "orv/live/01x/0", "orv/playback/1_2_3", "orv/multicast/2/0"})
    {
        const Received refused = client.request("DESCRIBE", url(path), login("a"));
        EXPECT_EQ(refused.status, 403) << path;
        EXPECT_EQ(refused.body, "");
        EXPECT_EQ(refused.headers.count("WWW-Authenticate"), 0U);
        EXPECT_EQ(client.request("SETUP", url(path) + "/trackID=0", tcp + login("a")).status, 403) << path;
    }
    EXPECT_EQ(client.request("DESCRIBE", url("orv/live/3/0"), login("b")).status, 404);
    EXPECT_EQ(client.request("DESCRIBE", url("elsewhere/1"), login("a")).status, 404);
}

TEST_F(RtspServerRightsTest, AnotherSpellingOfACameraIsTheSameCamera)
{
    startWith({user("a", {"1", "", "", ""})});
    TestClient client(server->port());
    for (const char* const path :
         {"orv/live/01/0", "orv/live/%31/0", "orv/live/1/0/", "//orv/live/1/0", "orv/live/1/0?camera=2"})
    {
        EXPECT_EQ(client.request("DESCRIBE", url(path), login("a")).status, 200) << path;
    }
    for (const char* const path : {"orv/live/02/0", "orv/live/%32/0", "orv/live/2/0/",
                                   "orv/live/2/0?x=orv/live/1/0", "orv/live/2/0/orv/live/1/0"})
    {
        EXPECT_EQ(client.request("DESCRIBE", url(path), login("a")).status, 403) << path;
    }
}

TEST_F(RtspServerRightsTest, RefusedSetupLeavesNoSessionAndStartsNoCamera)
{
    startWith({user("a", {"1", "", "", ""})});
    TestClient client(server->port());
    EXPECT_EQ(client.request("SETUP", track(url("orv/live/2/0"), 0), tcp + login("a")).status, 403);
    EXPECT_EQ(server->sessionCount(), 0U);
    EXPECT_EQ(streams->streams[1]->described.load(), 0);
}

TEST_F(RtspServerRightsTest, AUserWhoMayTalkOnlyHasThatTrackAlone)
{
    startWith({user("a", {"", "", "1", ""})});
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url(), login("a")).status, 403);
    const Received described = client.request("DESCRIBE", url(), login("a") + requireTalk);
    EXPECT_EQ(described.status, 200);
    EXPECT_NE(described.body.find("trackID=talk"), std::string::npos);
    EXPECT_EQ(client.request("SETUP", track(url(), 0), tcp + login("a")).status, 403);
    EXPECT_EQ(server->sessionCount(), 0U);
    const std::string id = watch(client, "a", "orv/live/1/0", "trackID=talk");
    EXPECT_EQ(client.request("SETUP", track(url(), 0), tcp + session(id) + login("a")).status, 403);
    EXPECT_EQ(play(client, "a", "orv/live/1/0", id), 200) << "its session goes on";
}

TEST_F(RtspServerRightsTest, AViewerWhoMayNotTalkKeepsItsSessionWhenItTries)
{
    startWith({user("a", {"1", "", "", ""})});
    TestClient client(server->port());
    const Received described = client.request("DESCRIBE", url(), login("a") + requireTalk);
    EXPECT_EQ(described.status, 200) << "clients that always require the back channel can watch";
    EXPECT_EQ(described.body.find("talk"), std::string::npos);
    const std::string id = watch(client, "a", "orv/live/1/0");
    EXPECT_EQ(
        client.request("SETUP", url() + "/trackID=talk", tcp + session(id) + login("a") + requireTalk).status,
        403);
    EXPECT_EQ(play(client, "a", "orv/live/1/0", id), 200);
    EXPECT_EQ(client.request("SETUP", track(url(), 1), tcp + session(id) + login("a")).status, 200);
}

TEST_F(RtspServerRightsTest, ForbiddenIsSaidWhereNobodyCouldLogIn)
{
    startWith({anonymous({"1", "", "", ""})});
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url("orv/live/1/0")).status, 200);
    EXPECT_EQ(client.request("DESCRIBE", url("orv/live/2/0")).status, 403);
}

TEST_F(RtspServerRightsTest, AnonymousIsNoNameToLogInWith)
{
    startWith({anonymous({"1", "", "", ""}), user("a", {})});
    TestClient client(server->port());
    const std::string empty = "Authorization: Basic YW5vbnltb3VzOg==\r\n";
    EXPECT_EQ(client.request("DESCRIBE", url(), empty).status, 401);
    EXPECT_EQ(client.request("DESCRIBE", url(), login("anonymous")).status, 401);
    EXPECT_EQ(client.request("DESCRIBE", url()).status, 200);
}

TEST_F(RtspServerRightsTest, WhoDoesNotLogInIsAskedToForTheSessionOfAUser)
{
    startWith({anonymous({"1", "", "", ""}), user("a", {})});
    TestClient client(server->port());
    const std::string id = watch(client, "a", "orv/live/1/0");
    for (const char* const method : {"PLAY", "PAUSE", "TEARDOWN", "GET_PARAMETER", "OPTIONS"})
    {
        EXPECT_EQ(client.request(method, url(), session(id)).status, 401) << method;
        EXPECT_EQ(client.request(method, url(), session("0123456789ABCDEF")).status, 401) << method;
    }
    const std::string own = watch(client, "", "orv/live/1/0");
    EXPECT_EQ(client.request("PAUSE", url(), session(own)).status, 200);
    EXPECT_EQ(client.request("PLAY", url(), session(own) + login("a")).status, 454)
        << "it is not this user's";
}

TEST_F(RtspServerRightsTest, SessionsEndWithTheRightThatTheyNeed)
{
    const auto users = [](const GrantsConfig& grants) {
        return std::vector<UserConfig>{user("a", grants), user("b", {})};
    };
    startWith(users({"1,2", "1", "1", ""}));
    TestClient client(server->port());
    const std::string live = watch(client, "a", "orv/live/1/0");
    const std::string otherLive = watch(client, "a", "orv/live/2/0");
    const std::string playback = watch(client, "a", "orv/playback/1_1700000000_1700000060");
    const std::string talk = watch(client, "a", "orv/live/1/0", "trackID=talk");
    const std::string others = watch(client, "b", "orv/live/1/0");
    ASSERT_EQ(server->sessionCount(), 5U);

    EXPECT_EQ(server->setUsers(users({"1,2", "1", "1", ""}), {}), 0U) << "nothing changed";
    EXPECT_EQ(server->setUsers(users({"1,2", "1", "", ""}), {}), 1U);
    EXPECT_EQ(play(client, "a", "orv/live/1/0", talk), 454);
    EXPECT_EQ(server->setUsers(users({"2", "1", "", ""}), {}), 1U);
    EXPECT_EQ(play(client, "a", "orv/live/1/0", live), 454);
    EXPECT_EQ(server->setUsers(users({"2", "none", "", ""}), {}), 1U);
    EXPECT_EQ(play(client, "a", "orv/playback/1_1700000000_1700000060", playback), 454);
    EXPECT_EQ(play(client, "a", "orv/live/2/0", otherLive), 200);
    EXPECT_EQ(server->setUsers({user("b", {})}, {}), 1U) << "the user is gone";
    EXPECT_EQ(client.request("PLAY", url("orv/live/2/0"), session(otherLive) + login("a")).status, 401);
    EXPECT_EQ(play(client, "b", "orv/live/1/0", others), 200);
    EXPECT_EQ(server->sessionCount(), 1U);
}

TEST_F(RtspServerRightsTest, ASessionThatTalksEndsWithTheRightToTalk)
{
    startWith({user("a", {"1", "", "1", ""})});
    TestClient client(server->port());
    const std::string id = watch(client, "a", "orv/live/1/0");
    ASSERT_EQ(
        client.request("SETUP", url() + "/trackID=talk", tcp + session(id) + login("a") + requireTalk).status,
        200);
    EXPECT_EQ(server->setUsers({user("a", {"1", "", "", ""})}, {}), 1U);
    EXPECT_EQ(talkBack()->getSessionNum(), 0);
}

TEST_F(RtspServerRightsTest, SessionsFromBeforeThereWereUsersEndUnlessAnonymousMayGoOn)
{
    startWith({});
    TestClient client(server->port());
    const std::string first = watch(client, "", "orv/live/1/0");
    const std::string second = watch(client, "", "orv/live/2/0");
    EXPECT_EQ(server->setUsers({user("a", {}), anonymous({"2", "", "", ""})}, {}), 1U);
    EXPECT_EQ(play(client, "", "orv/live/2/0", second), 200);
    EXPECT_EQ(play(client, "", "orv/live/1/0", first), 401);
}

TEST_F(RtspServerRightsTest, AMulticastViewerLeavesItsGroupWithTheRight)
{
    startWith({user("a", {"1", "", "", ""})});
    TestClient client(server->port());
    const std::string path = "orv/multicast/1/0";
    const Received setup =
        client.request("SETUP", track(url(path), 0), "Transport: RTP/AVP;multicast\r\n" + login("a"));
    ASSERT_EQ(setup.status, 200);
    ASSERT_EQ(play(client, "a", path, setup.session()), 200);
    EXPECT_EQ(streams->streams[0]->viewers.load(), 1);
    EXPECT_EQ(server->setUsers({user("a", {"2", "", "", ""})}, {}), 1U);
    EXPECT_EQ(streams->streams[0]->viewers.load(), 0);
}

UserConfig hashed(const std::string& name, const PasswordHash& hash)
{
    UserConfig user{name, "", "", {"1", "", "", ""}};
    user.passwordHash = hash.text();
    return user;
}

PasswordHash slowHash()
{
    PasswordHash hash;
    hash.crypt = SlowHash::make("secret");
    return hash;
}

TEST_F(RtspServerRightsTest, APasswordThatIsKeptAsASlowHashLogsInByBasic)
{
    startWith({hashed("a", slowHash()), user("b", {})});
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url(), login("a")).status, 200);
    EXPECT_EQ(client.request("DESCRIBE", url("orv/live/2/0"), login("a")).status, 403);
    EXPECT_EQ(client.request("DESCRIBE", url(), login("b")).status, 200);
    const std::string wrong = "Authorization: Basic YTp3cm9uZw==\r\n";
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(client.request("DESCRIBE", url(), wrong).status, 401);
    }
    EXPECT_EQ(client.request("DESCRIBE", url(), login("nobody")).status, 401);
}

TEST_F(RtspServerRightsTest, RequestsBehindOneWhosePasswordIsCheckedKeepTheirOrder)
{
    startWith({hashed("a", slowHash())});
    TestClient client(server->port());
    client.send(TestClient::text("DESCRIBE", url(), 1, login("a"), "") +
                TestClient::text("OPTIONS", url(), 2, "", "") +
                TestClient::text("DESCRIBE", url(), 3, login("a"), ""));
    for (const char* const cseq : {"1", "2", "3"})
    {
        const Received response = client.response();
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.header("CSeq"), cseq);
    }
}

TEST_F(RtspServerRightsTest, OthersAreServedWhilePasswordsAreChecked)
{
    startWith({hashed("a", slowHash()), anonymous({"1", "", "", ""})});
    TestClient viewer(server->port());
    std::vector<std::unique_ptr<TestClient>> guessers;
    for (int i = 0; i < 8; ++i)
    {
        guessers.push_back(std::make_unique<TestClient>(server->port()));
        const std::string text = "a:guess" + std::to_string(i);
        guessers.back()->send(TestClient::text(
            "DESCRIBE", url(), 1,
            "Authorization: Basic " +
                base64Of(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()) + "\r\n",
            ""));
    }
    EXPECT_EQ(viewer.request("DESCRIBE", url()).status, 200);
    for (const auto& guesser : guessers)
    {
        EXPECT_EQ(guesser->response().status, 401);
    }
}

TEST_F(RtspServerRightsTest, AnotherHashCountsFromTheNextRequestOn)
{
    startWith({hashed("a", slowHash())});
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url(), login("a")).status, 200);
    PasswordHash other;
    other.crypt = SlowHash::make("another");
    server->setUsers({hashed("a", other)}, {});
    EXPECT_EQ(client.request("DESCRIBE", url(), login("a")).status, 401) << "though it is remembered";
    server->setUsers({hashed("a", slowHash())}, {});
    EXPECT_EQ(client.request("DESCRIBE", url(), login("a")).status, 200);
}

TEST_F(RtspServerRightsTest, BasicIsOfferedAloneWhereAUserCannotAnswerDigest)
{
    startWith({hashed("a", slowHash()), user("b", {})});
    TestClient client(server->port());
    const Received challenge = client.request("DESCRIBE", url());
    EXPECT_EQ(challenge.headers.count("WWW-Authenticate"), 1U);
    EXPECT_EQ(challenge.header("WWW-Authenticate").rfind("Basic ", 0), 0U);
}

TEST_F(RtspServerRightsTest, APasswordThatIsKeptForDigestLogsInByItAndByBasic)
{
    using Algorithm = DigestAuth::Algorithm;
    PasswordHash hash;
    hash.binding = PasswordHash::bindingOf("a", "ovrtspd");
    hash.md5 = DigestAuth::secret(Algorithm::md5, "a", "ovrtspd", "secret");
    hash.sha256 = DigestAuth::secret(Algorithm::sha256, "a", "ovrtspd", "secret");
    startWith({hashed("a", hash)});
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url(), login("a")).status, 200);
    const Received challenge = client.request("DESCRIBE", url());
    EXPECT_EQ(challenge.headers.count("WWW-Authenticate"), 4U);
    const std::string text = challenge.header("WWW-Authenticate");
    const std::size_t at = text.find("nonce=\"") + 7;
    const std::string nonce = text.substr(at, text.find('"', at) - at);
    std::string fields = "username=\"a\", realm=\"ovrtspd\", nonce=\"" + nonce + "\", uri=\"" + url() + "\"";
    const std::string complete = fields + ", response=\"x\"";
    DigestAuth::Answer answer;
    ASSERT_TRUE(DigestAuth::parse(complete, answer));
    const std::string header = "Authorization: Digest " + fields + ", response=\"" +
                               DigestAuth::expected(answer, hash.md5, "DESCRIBE") + "\"\r\n";
    EXPECT_EQ(client.request("DESCRIBE", url(), header).status, 200);
}

class RtspServerCertificateTest : public RtspServerRightsTest
{
protected:
    RtspServerCertificateTest()
    {
        std::string error;
        EXPECT_TRUE(pair_.prepare(clientFolder_.path(), error)) << error;
        config.tls.clientCa = pair_.certificate();
        options_.certificate = pair_.certificate();
        options_.key = pair_.key();
    }

    std::string tlsUrl(const std::string& path) const
    {
        return "rtsps://127.0.0.1:" + std::to_string(server->tlsPort()) + "/" + path;
    }

    /// Without a password.
    static UserConfig certified(const std::string& name)
    {
        return {name, "", "", {"1", "", "", ""}};
    }

    TemporaryFolder clientFolder_;
    SelfSignedCertificate pair_;  // its common name is "ovrtspd"
    TlsPeer::Options options_;
};

TEST_F(RtspServerCertificateTest, TheCommonNameIsTheUserWhereTheConfigurationSaysSo)
{
    config.tls.certificateUsers = true;
    startWith({certified("ovrtspd"), user("b", {"2", "", "", ""})});
    TlsClient client(server->tlsPort(), options_);
    ASSERT_TRUE(client.connected());
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/1/0")).status, 200);
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/2/0")).status, 403);
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/2/0"), login("b")).status, 200)
        << "credentials come before it";
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/1/0"), login("nobody")).status, 401);
    TestClient plain(server->port());
    EXPECT_EQ(plain.request("DESCRIBE", url()).status, 401);
    EXPECT_EQ(plain.request("DESCRIBE", url(), "Authorization: Basic b3ZydHNwZDo=\r\n").status, 401)
        << "an empty password is none";
}

TEST_F(RtspServerCertificateTest, AResumedTlsSessionHasTheUserOfItsCertificate)
{
    config.tls.certificateUsers = true;
    startWith({certified("ovrtspd")});
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> clients(SSL_CTX_new(TLS_client_method()),
                                                                    &SSL_CTX_free);
    options_.context = clients.get();
    std::unique_ptr<SSL_SESSION, decltype(&SSL_SESSION_free)> ticket(nullptr, &SSL_SESSION_free);
    {
        TlsClient client(server->tlsPort(), options_);
        EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/1/0")).status, 200);
        client.peer().endWriting();
        ticket.reset(SSL_get1_session(client.peer().ssl()));
    }
    options_.session = ticket.get();
    TlsClient client(server->tlsPort(), options_);
    EXPECT_EQ(1, SSL_session_reused(client.peer().ssl()));
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/1/0")).status, 200);
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/2/0")).status, 403);
}

TEST_F(RtspServerCertificateTest, OtherwiseItIsNobody)
{
    startWith({certified("ovrtspd")});
    TlsClient client(server->tlsPort(), options_);
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/1/0")).status, 401);
}

TEST_F(RtspServerCertificateTest, ANameThatNoUserHasIsNobody)
{
    config.tls.certificateUsers = true;
    startWith({certified("other")});
    TlsClient client(server->tlsPort(), options_);
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl("orv/live/1/0")).status, 401);
}

}  // namespace
}  // namespace test
}  // namespace refhost
