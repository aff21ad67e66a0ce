#include <string>

#include "refhost/rtsp/session/RequestHandler.h"
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

}  // namespace
}  // namespace test
}  // namespace refhost
