#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>

#include "refhost/rtsp/message/KeyMgmtHeader.h"
#include "tests/CapturedErrors.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/rtp/srtp/SrtpPeer.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"
#include "tests/refhost/rtsp/connection/TlsClient.h"

namespace refhost
{
namespace
{

using test::Received;
using test::SrtpPeer;
using test::TestClient;
using test::TlsClient;
using test::UdpPort;
using Bytes = SrtpPeer::Bytes;

class RtspServerSrtpTest : public test::RtspServerFixture
{
protected:
    static constexpr const char* query = "?security=srtp";

    RtspServerSrtpTest()
    {
        config.tls.selfSigned = true;
        config.tls.directory = folder_.path();
        config.tls.port = 0;
    }

    std::string tlsUrl() const
    {
        return "rtsps://127.0.0.1:" + std::to_string(server->tlsPort()) + "/orv/live/1/0";
    }

    /// The values of the attribute in the description's tracks, in their order.
    static std::vector<std::string> attributes(const std::string& sdp, const std::string& name)
    {
        std::vector<std::string> found;
        const std::string start = "a=" + name + ":";
        for (std::size_t at = sdp.find(start); at != std::string::npos; at = sdp.find(start, at))
        {
            at += start.size();
            found.push_back(sdp.substr(at, sdp.find('\r', at) - at));
        }
        return found;
    }

    /// The key of a track as its description says.
    static SrtpKey keyOf(const Received& description, std::size_t track)
    {
        const auto values = attributes(description.body, "key-mgmt");
        EXPECT_GT(values.size(), track) << description.body;
        const auto message = KeyMgmtHeader::parseAttribute(values.at(track));
        EXPECT_TRUE(message);
        return message->key;
    }

    /// A header with the client's own key, as rtspsrc sends it.
    static std::string keyHeader(const SrtpKey& key)
    {
        std::string header = "KeyMgmt: ";
        KeyMgmtHeader::append(header, "rtsp://h/t", MikeyMessage::write(key, {{1, 0}}, WallTime()));
        return header + "\r\n";
    }

    static std::string udp(const UdpPort& port, const std::string& profile = "RTP/SAVP")
    {
        return "Transport: " + profile + ";unicast;client_port=" + std::to_string(port.port()) + "-" +
               std::to_string(port.port() + 1) + "\r\n";
    }

    TemporaryFolder folder_;
    const SrtpKey clientKey_ = SrtpKey::random(SrtpSuite::aesCm128HmacSha1Tag80);
};

TEST_F(RtspServerSrtpTest, ARequestedDescriptionAnnouncesSrtpWithAKeyForEachTrack)
{
    start();
    TestClient client(server->port());
    const Received plain = client.request("DESCRIBE", url());
    EXPECT_NE(plain.body.find(" RTP/AVP "), std::string::npos);
    EXPECT_EQ(plain.body.find("key-mgmt"), std::string::npos);
    const Received secure = client.request("DESCRIBE", url() + query);
    EXPECT_EQ(secure.body.find(" RTP/AVP "), std::string::npos);
    EXPECT_NE(secure.body.find(" RTP/SAVP "), std::string::npos);
    EXPECT_FALSE(keyOf(secure, 0) == keyOf(secure, 1));
    EXPECT_EQ(secure.header("Content-Base"), url() + "/");
    EXPECT_TRUE(attributes(secure.body, "crypto").empty()) << "in the clear";
    EXPECT_FALSE(keyOf(client.request("DESCRIBE", url() + query), 0) == keyOf(secure, 0));
}

TEST_F(RtspServerSrtpTest, MediaOverUdpIsEncryptedWithTheDescribedKey)
{
    start();
    TestClient client(server->port());
    UdpPort port;
    const Received description = client.request("DESCRIBE", url() + query);
    const Received setup = client.request("SETUP", track(url(), 0), udp(port) + keyHeader(clientKey_));
    ASSERT_EQ(setup.status, 200);
    EXPECT_EQ(setup.header("Transport").rfind("RTP/SAVP;unicast;", 0), 0u) << setup.header("Transport");
    EXPECT_EQ(setup.header("KeyMgmt"), "") << "the description had the key";
    frame(true);
    ASSERT_EQ(client.request("PLAY", url(), session(setup.session())).status, 200);
    frame(true);
    SrtpPeer peer(keyOf(description, 0), clientKey_);
    for (int i = 0; i < 5; ++i)
    {
        const Bytes packet = peer.open(SrtpPeer::bytesOf(port.receive()));
        ASSERT_GT(packet.size(), 12u) << i;
    }
}

TEST_F(RtspServerSrtpTest, MediaInsideTheConnectionIsEncryptedToo)
{
    start();
    TestClient client(server->port());
    const Received description = client.request("DESCRIBE", url() + query);
    const Received setup =
        client.request("SETUP", track(url(), 0), "Transport: RTP/SAVP/TCP;unicast;interleaved=0-1\r\n");
    ASSERT_EQ(setup.status, 200);
    EXPECT_EQ(setup.header("Transport").rfind("RTP/SAVP/TCP;unicast;interleaved=0-1", 0), 0u);
    frame(true);
    ASSERT_EQ(client.request("PLAY", url(), session(setup.session())).status, 200);
    frame(true);
    const SrtpKey key = keyOf(description, 0);
    SrtpPeer peer(key, key);
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_GT(peer.open(SrtpPeer::bytesOf(client.frame(0).payload)).size(), 12u) << i;
    }
    EXPECT_FALSE(peer.openRtcp(SrtpPeer::bytesOf(client.frame(1).payload)).empty());
}

TEST_F(RtspServerSrtpTest, TheAuditLogNamesItAsTheTransport)
{
    start();
    CapturedErrors errors;
    TestClient client(server->port(), 0, AF_INET, "127.0.5.7");
    UdpPort port;
    ASSERT_EQ(client.request("SETUP", track(url(), 0), udp(port)).status, 200);
    EXPECT_EQ(
        errors.linesWith("session-started address=127.0.5.7 user=\"\" url=\"" + url() + "\" transport=srtp")
            .size(),
        1u);
}

TEST_F(RtspServerSrtpTest, AClientWithoutADescriptionGetsTheKeyWithSetup)
{
    start();
    TestClient client(server->port());
    UdpPort port;
    const Received setup = client.request("SETUP", track(url(), 0), udp(port));
    ASSERT_EQ(setup.status, 200);
    const auto message = KeyMgmtHeader::parse(setup.header("KeyMgmt"));
    ASSERT_TRUE(message);
    ASSERT_EQ(message->sessions.size(), 1u);
    frame(true);
    ASSERT_EQ(client.request("PLAY", url(), session(setup.session())).status, 200);
    frame(true);
    SrtpPeer peer(message->key, message->key);
    const Bytes packet = peer.open(SrtpPeer::bytesOf(port.receive()));
    ASSERT_GT(packet.size(), 12u);
    EXPECT_EQ(readBig32(packet.data() + 8), message->sessions[0].ssrc);
}

TEST_F(RtspServerSrtpTest, AKeyMgmtHeaderWithoutAUsableKeyIsAnswered463)
{
    start();
    TestClient client(server->port());
    UdpPort port;
    for (const char* const header :
         {"KeyMgmt: \r\n", "KeyMgmt: prot=mikey;data=\"AAAA\"\r\n", "KeyMgmt: prot=dtls;data=\"AAAA\"\r\n"})
    {
        EXPECT_EQ(client.request("SETUP", track(url(), 0), udp(port) + header).status, 463) << header;
    }
    EXPECT_EQ(client.request("SETUP", track(url(), 0), udp(port, "RTP/AVP") + "KeyMgmt: \r\n").status, 200)
        << "RTP/AVP needs no key";
}

TEST_F(RtspServerSrtpTest, ProfilesWithFeedbackAreNotSupported)
{
    start();
    TestClient client(server->port());
    UdpPort port;
    EXPECT_EQ(client.request("SETUP", track(url(), 0), udp(port, "RTP/SAVPF")).status, 461);
    EXPECT_EQ(client.request("SETUP", track(url(), 0), udp(port, "RTP/AVPF")).status, 461);
}

TEST_F(RtspServerSrtpTest, OnTlsTheDescriptionHasCryptoAttributesAndRtpAvpMeansRtpSavp)
{
    start();
    TlsClient client(server->tlsPort());
    UdpPort port;
    const Received description = client.request("DESCRIBE", tlsUrl() + query);
    ASSERT_EQ(attributes(description.body, "crypto").size(), 2u) << description.body;
    EXPECT_EQ(attributes(description.body, "crypto")[0].rfind("1 AES_CM_128_HMAC_SHA1_80 inline:", 0), 0u);
    const Received setup = client.request("SETUP", track(tlsUrl(), 0), udp(port, "RTP/AVP"));
    ASSERT_EQ(setup.status, 200);
    EXPECT_EQ(setup.header("Transport").rfind("RTP/SAVP;unicast;", 0), 0u);
    // A later description without keys ends that.
    EXPECT_EQ(client.request("DESCRIBE", tlsUrl()).status, 200);
    const Received plain = client.request("SETUP", track(tlsUrl(), 1), udp(port, "RTP/AVP"));
    EXPECT_EQ(plain.header("Transport").rfind("RTP/AVP;unicast;", 0), 0u);
}

TEST_F(RtspServerSrtpTest, KeysMayBeKeptToTlsConnections)
{
    config.srtp.keys = "tls-only";
    start();
    TestClient client(server->port());
    UdpPort port;
    EXPECT_EQ(client.request("DESCRIBE", url() + query).status, 403);
    EXPECT_EQ(client.request("SETUP", track(url(), 0), udp(port)).status, 403);
    EXPECT_EQ(client.request("DESCRIBE", url()).status, 200);
    TlsClient encrypted(server->tlsPort());
    EXPECT_EQ(encrypted.request("DESCRIBE", tlsUrl() + query).status, 200);
    EXPECT_EQ(encrypted.request("SETUP", track(tlsUrl(), 0), udp(port)).status, 200);
}

TEST_F(RtspServerSrtpTest, AnotherSuiteMayBeChosen)
{
    config.srtp.suite = "AEAD_AES_128_GCM";
    start();
    TestClient client(server->port());
    UdpPort port;
    const Received description = client.request("DESCRIBE", url() + query);
    EXPECT_EQ(keyOf(description, 0).suite(), SrtpSuite::aeadAes128Gcm);
    const Received setup = client.request("SETUP", track(url(), 0), udp(port) + keyHeader(clientKey_));
    ASSERT_EQ(setup.status, 200);
    frame(true);
    ASSERT_EQ(client.request("PLAY", url(), session(setup.session())).status, 200);
    frame(true);
    SrtpPeer peer(keyOf(description, 0), clientKey_);
    EXPECT_GT(peer.open(SrtpPeer::bytesOf(port.receive())).size(), 12u);
}

/// What a camera requires, and the status of each SETUP, by connection and transport.
struct Requirement
{
    const char* security;
    std::map<std::string, int> statuses;
};

class RtspServerSecurityTest : public RtspServerSrtpTest, public testing::WithParamInterface<Requirement>
{
};

TEST_P(RtspServerSecurityTest, EveryTransportIsServedOrForbidden)
{
    config.security = GetParam().security;
    start();
    std::map<std::string, int> statuses;
    for (const bool encrypted : {false, true})
    {
        for (const std::string profile : {"RTP/AVP", "RTP/SAVP"})
        {
            for (const bool interleaved : {false, true})
            {
                const std::string base = encrypted ? tlsUrl() : url();
                const std::unique_ptr<TestClient> client =
                    encrypted ? std::make_unique<TlsClient>(server->tlsPort())
                              : std::make_unique<TestClient>(server->port());
                UdpPort port;
                const std::string transport =
                    interleaved ? "Transport: " + profile + "/TCP;unicast\r\n" : udp(port, profile);
                statuses[(encrypted ? "tls " : "plain ") + profile + (interleaved ? "/TCP" : "")] =
                    client->request("SETUP", track(base, 0), transport).status;
            }
        }
    }
    EXPECT_EQ(statuses, GetParam().statuses);
}

INSTANTIATE_TEST_SUITE_P(Requirements, RtspServerSecurityTest,
                         testing::Values(Requirement{"none",
                                                     {{"plain RTP/AVP", 200},
                                                      {"plain RTP/AVP/TCP", 200},
                                                      {"plain RTP/SAVP", 200},
                                                      {"plain RTP/SAVP/TCP", 200},
                                                      {"tls RTP/AVP", 200},
                                                      {"tls RTP/AVP/TCP", 200},
                                                      {"tls RTP/SAVP", 200},
                                                      {"tls RTP/SAVP/TCP", 200}}},
                                         Requirement{"tls",
                                                     {{"plain RTP/AVP", 403},
                                                      {"plain RTP/AVP/TCP", 403},
                                                      {"plain RTP/SAVP", 403},
                                                      {"plain RTP/SAVP/TCP", 403},
                                                      {"tls RTP/AVP", 403},
                                                      {"tls RTP/AVP/TCP", 200},
                                                      {"tls RTP/SAVP", 403},
                                                      {"tls RTP/SAVP/TCP", 200}}},
                                         Requirement{"srtp",
                                                     {{"plain RTP/AVP", 403},
                                                      {"plain RTP/AVP/TCP", 403},
                                                      {"plain RTP/SAVP", 200},
                                                      {"plain RTP/SAVP/TCP", 200},
                                                      {"tls RTP/AVP", 403},
                                                      {"tls RTP/AVP/TCP", 403},
                                                      {"tls RTP/SAVP", 200},
                                                      {"tls RTP/SAVP/TCP", 200}}},
                                         Requirement{"any-encrypted",
                                                     {{"plain RTP/AVP", 403},
                                                      {"plain RTP/AVP/TCP", 403},
                                                      {"plain RTP/SAVP", 200},
                                                      {"plain RTP/SAVP/TCP", 200},
                                                      {"tls RTP/AVP", 403},
                                                      {"tls RTP/AVP/TCP", 200},
                                                      {"tls RTP/SAVP", 200},
                                                      {"tls RTP/SAVP/TCP", 200}}}),
                         [](const testing::TestParamInfo<Requirement>& instance)
                         {
                             std::string name = instance.param.security;
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

TEST_P(RtspServerSecurityTest, DescriptionsAnnounceWhatIsServed)
{
    config.security = GetParam().security;
    start();
    const std::string security = config.security;
    TestClient plain(server->port());
    TlsClient encrypted(server->tlsPort());
    const Received inTheClear = plain.request("DESCRIBE", url());
    const Received inTls = encrypted.request("DESCRIBE", tlsUrl());
    EXPECT_EQ(inTheClear.status, security == "tls" ? 403 : 200);
    EXPECT_EQ(inTheClear.body.find(" RTP/SAVP ") != std::string::npos,
              security == "srtp" || security == "any-encrypted");
    EXPECT_EQ(inTls.status, 200);
    EXPECT_EQ(inTls.body.find(" RTP/SAVP ") != std::string::npos, security == "srtp");
}

TEST_F(RtspServerSrtpTest, ACameraMayRequireMoreThanTheOthers)
{
    config.cameras = {CameraConfig{1, "", {}}, CameraConfig{2, "", {}}};
    config.cameras[0].security = "srtp";
    start();
    EXPECT_EQ(TestClient(server->port()).request("SETUP", track(url(), 0), tcp).status, 403);
    config.cameras[0].security = "none";
    config.cameras[1].security = "srtp";
    start();
    EXPECT_EQ(TestClient(server->port()).request("SETUP", track(url(), 0), tcp).status, 200);
}

}  // namespace
}  // namespace refhost
