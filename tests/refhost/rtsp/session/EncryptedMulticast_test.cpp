#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "refhost/rtsp/message/KeyMgmtHeader.h"
#include "tests/refhost/rtp/srtp/SrtpPeer.h"
#include "tests/refhost/rtsp/connection/RightsFixture.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr const char* secure = "Transport: RTP/SAVP;multicast\r\n";
constexpr const char* path = "orv/multicast/1/0";

/// Cameras whose groups are encrypted.
class EncryptedMulticastTest : public RightsFixture
{
protected:
    EncryptedMulticastTest()
    {
        config.security = "srtp";
    }

    /// One member, with its connection.
    struct Member
    {
        explicit Member(int port) : client(port) {}

        TestClient client;
        std::optional<SrtpKey> key;  ///< of the description
        Received setup;
    };

    std::optional<SrtpKey> describe(Member& member, const std::string& name)
    {
        const Received description = member.client.request("DESCRIBE", url(path), login(name));
        EXPECT_EQ(description.status, 200);
        EXPECT_EQ(description.body.find("RTP/AVP"), std::string::npos) << description.body;
        EXPECT_EQ(description.body.find("a=crypto"), std::string::npos) << "late members could not use it";
        constexpr std::string_view attribute = "a=key-mgmt:";
        const std::size_t at = description.body.find(attribute) + attribute.size();
        const auto message =
            KeyMgmtHeader::parseAttribute(description.body.substr(at, description.body.find('\r', at) - at));
        EXPECT_TRUE(message) << description.body;
        return message->key;
    }

    /// DESCRIBE and SETUP of the first track.
    std::unique_ptr<Member> join(const std::string& name = {})
    {
        auto member = std::make_unique<Member>(server->port());
        member->key = describe(*member, name);
        member->setup = setUp(*member, name);
        EXPECT_EQ(member->setup.status, 200);
        return member;
    }

    Received setUp(Member& member, const std::string& name)
    {
        return member.client.request("SETUP", track(url(path), 0), secure + login(name));
    }

    void play(Member& member, const std::string& name = {})
    {
        EXPECT_EQ(
            member.client.request("PLAY", url(path), session(member.setup.session()) + login(name)).status,
            200);
    }

    /// The socket of a member of the group that SETUP names.
    static GroupMember socketOf(const Member& member)
    {
        const std::string transport = member.setup.header("Transport");
        const auto value = [&transport](const std::string& name)
        {
            const std::size_t at = transport.find(name) + name.size();
            return transport.substr(at, transport.find_first_of(";-", at) - at);
        };
        const auto group = MulticastGroup::parse(value(";destination=") + ":" + value(";port="));
        EXPECT_TRUE(group) << transport;
        return {*group, group->port};
    }

    /// Whether the next packet can be opened with the key.
    static bool opens(GroupMember& socket, const SrtpKey& key)
    {
        SrtpPeer peer(key, key);
        return peer.open(socket.receive()).size() > 12;
    }

    std::vector<UserConfig> users_{user("a", {"*", "", "", ""}), user("b", {"1", "", "", ""})};
};

TEST_F(EncryptedMulticastTest, EveryMemberDecryptsWithTheKeyOfItsDescription)
{
    start();
    const auto one = join();
    const auto other = join();
    EXPECT_TRUE(*one->key == *other->key);
    EXPECT_EQ(one->setup.header("Transport").rfind("RTP/SAVP;multicast;", 0), 0U)
        << one->setup.header("Transport");
    GroupMember socket = socketOf(*one);
    play(*one);
    play(*other);
    frame(true);
    EXPECT_TRUE(opens(socket, *one->key));
    EXPECT_FALSE(opens(socket, SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag80)));
}

TEST_F(EncryptedMulticastTest, SetupNamesTheKeyWithSourceAndRolloverCounter)
{
    start();
    const auto member = join();
    const auto message = KeyMgmtHeader::parse(member->setup.header("KeyMgmt"));
    ASSERT_TRUE(message) << member->setup.header("KeyMgmt");
    EXPECT_TRUE(message->key == *member->key);
    ASSERT_EQ(message->sessions.size(), 1U);
    EXPECT_NE(message->sessions[0].ssrc, 0U);
    EXPECT_EQ(message->sessions[0].rolloverCounter, 0U);
}

TEST_F(EncryptedMulticastTest, NoMemberGetsAGroupInTheClear)
{
    start();
    TestClient client(server->port());
    EXPECT_EQ(client.request("SETUP", track(url(path), 0), "Transport: RTP/AVP;multicast\r\n").status, 403);
    EXPECT_EQ(server->sessionCount(), 0U);
}

TEST_F(EncryptedMulticastTest, CamerasThatRequireTlsAreNotSentToGroups)
{
    config.security = "tls";
    start();
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url(path)).status, 403);
    EXPECT_EQ(client.request("SETUP", track(url(path), 0), secure).status, 461);
}

TEST_F(EncryptedMulticastTest, KeysForTlsConnectionsAloneAreNotSentInTheClear)
{
    config.srtp.keys = "tls-only";
    start();
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url(path)).status, 403);
    EXPECT_EQ(client.request("SETUP", track(url(path), 0), secure).status, 403);
}

TEST_F(EncryptedMulticastTest, WhoMayNotWatchGetsNoKey)
{
    config.users = {user("a", {"2", "", "", ""})};
    start();
    TestClient client(server->port());
    EXPECT_EQ(client.request("DESCRIBE", url(path), login("a")).status, 403);
    const Received refused = client.request("SETUP", track(url(path), 0), secure + login("a"));
    EXPECT_EQ(refused.status, 403);
    EXPECT_EQ(refused.header("KeyMgmt"), "");
}

TEST_F(EncryptedMulticastTest, TheGroupGetsAnotherKeyWhenAMembersRightEnds)
{
    config.users = users_;
    start();
    const auto stays = join("a");
    const auto goes = join("b");
    play(*stays, "a");
    EXPECT_EQ(server->setUsers({users_[0]}, {}), 2U);
    EXPECT_EQ(server->sessionCount(), 0U) << "who stays gets the other key by a description";
    const auto again = join("a");
    EXPECT_FALSE(*again->key == *goes->key);
    GroupMember socket = socketOf(*again);
    play(*again, "a");
    frame(true);
    EXPECT_FALSE(opens(socket, *goes->key));
    EXPECT_TRUE(opens(socket, *again->key));
}

TEST_F(EncryptedMulticastTest, TheKeyIsReplacedThoughItsHolderNeverJoined)
{
    config.users = users_;
    start();
    const auto stays = join("a");
    Member reader(server->port());
    EXPECT_TRUE(*describe(reader, "b") == *stays->key);
    EXPECT_EQ(server->setUsers({users_[0]}, {}), 1U);
    EXPECT_FALSE(*join("a")->key == *stays->key);
}

TEST_F(EncryptedMulticastTest, ARightThatEndsElsewhereDisturbsNoMember)
{
    config.users = users_;
    start();
    const auto stays = join("a");
    EXPECT_EQ(server->setUsers({users_[0]}, {}), 0U);
    EXPECT_EQ(server->sessionCount(), 1U);
    EXPECT_TRUE(*join("a")->key == *stays->key);
}

TEST_F(EncryptedMulticastTest, SetupAfterADescriptionWithAReplacedKeyIsRefused)
{
    config.users = users_;
    start();
    Member late(server->port());
    describe(late, "a");
    join("b");
    server->setUsers({users_[0]}, {});
    EXPECT_EQ(setUp(late, "a").status, 463);
    EXPECT_EQ(server->sessionCount(), 0U);
    describe(late, "a");
    EXPECT_EQ(setUp(late, "a").status, 200);
}

TEST_F(EncryptedMulticastTest, MembersEndWhenTheProtectionOfTheirGroupChanges)
{
    start();
    const auto member = join();
    config.security = "none";
    std::string error;
    EXPECT_TRUE(server->setConfig(config, error)) << error;
    EXPECT_EQ(server->sessionCount(), 0U);
    TestClient client(server->port());
    EXPECT_EQ(client.request("SETUP", track(url(path), 0), "Transport: RTP/AVP;multicast\r\n").status, 200);
}

}  // namespace
}  // namespace test
}  // namespace refhost
