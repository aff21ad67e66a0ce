#include "refhost/rtp/srtp/MikeyMessage.h"

#include <gst/sdp/sdp.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace refhost
{
namespace
{

using Bytes = std::vector<std::uint8_t>;

const WallTime someDay{std::chrono::seconds(1'700'000'000)};

Bytes written(SrtpSuite suite = SrtpSuite::aesCm128HmacSha1Tag80)
{
    return MikeyMessage::write(SrtpKey::random(suite), {{0x01020304, 5}}, someDay);
}

std::optional<MikeyMessage> parse(const Bytes& bytes)
{
    return MikeyMessage::parse(bytes.data(), bytes.size());
}

/// As GStreamer's clients and servers make their caps.
GstCaps* capsOf(const SrtpKey& key, const char* cipher, const char* auth)
{
    GstBuffer* const buffer = gst_buffer_new_memdup(key.data(), key.size());
    GstCaps* const caps =
        gst_caps_new_simple("application/x-srtp", "srtp-key", GST_TYPE_BUFFER, buffer, "srtp-cipher",
                            G_TYPE_STRING, cipher, "srtp-auth", G_TYPE_STRING, auth, "srtcp-cipher",
                            G_TYPE_STRING, cipher, "srtcp-auth", G_TYPE_STRING, auth, nullptr);
    gst_buffer_unref(buffer);
    return caps;
}

TEST(MikeyMessage, WhatIsWrittenIsReadBack)
{
    for (const SrtpSuite suite :
         {SrtpSuite::aesCm128HmacSha1Tag80, SrtpSuite::aesCm128HmacSha1Tag32, SrtpSuite::aeadAes128Gcm})
    {
        const SrtpKey key = SrtpKey::random(suite);
        const auto read = parse(MikeyMessage::write(key, {{1, 2}, {0xfffffffe, 0xffffffff}}, someDay));
        ASSERT_TRUE(read);
        EXPECT_TRUE(read->key == key);
        ASSERT_EQ(read->sessions.size(), 2U);
        EXPECT_EQ(read->sessions[1].ssrc, 0xfffffffeU);
        EXPECT_EQ(read->sessions[1].rolloverCounter, 0xffffffffU);
    }
}

TEST(MikeyMessage, EveryPrefixIsRefused)
{
    const Bytes message = written();
    for (std::size_t size = 0; size < message.size(); ++size)
    {
        // In memory of its own, so that a sanitizer sees a byte read too many.
        const Bytes prefix(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(parse(prefix)) << size;
    }
}

TEST(MikeyMessage, EveryChangedByteIsTakenOrRefused)
{
    const Bytes message = written();
    for (std::size_t i = 0; i < message.size(); ++i)
    {
        for (int value = 0; value < 256; ++value)
        {
            Bytes changed = message;
            changed[i] = static_cast<std::uint8_t>(value);
            (void)parse(changed);
        }
    }
}

TEST(MikeyMessage, AMessageBeyondTheLimitIsRefused)
{
    Bytes message = written();
    message.resize(MikeyMessage::maxSize, 0);
    EXPECT_TRUE(parse(message));
    message.push_back(0);
    EXPECT_FALSE(parse(message));
}

TEST(MikeyMessage, AMessageOfGStreamerIsRead)
{
    gst_init(nullptr, nullptr);
    struct Case
    {
        const char* auth;
        SrtpSuite suite;
    };
    for (const Case& expected : {Case{"hmac-sha1-80", SrtpSuite::aesCm128HmacSha1Tag80},
                                 Case{"hmac-sha1-32", SrtpSuite::aesCm128HmacSha1Tag32}})
    {
        const SrtpKey key = SrtpKey::random(expected.suite);
        GstCaps* const caps = capsOf(key, "aes-128-icm", expected.auth);
        GstMIKEYMessage* const message = gst_mikey_message_new_from_caps(caps);
        ASSERT_NE(message, nullptr);
        gst_mikey_message_add_cs_srtp(message, 0, 77, 3);
        GBytes* const bytes = gst_mikey_message_to_bytes(message, nullptr, nullptr);
        gsize size = 0;
        const auto* const data = static_cast<const std::uint8_t*>(g_bytes_get_data(bytes, &size));
        const auto read = MikeyMessage::parse(data, size);
        ASSERT_TRUE(read) << expected.auth;
        EXPECT_TRUE(read->key == key);
        ASSERT_EQ(read->sessions.size(), 1U);
        EXPECT_EQ(read->sessions[0].ssrc, 77U);
        EXPECT_EQ(read->sessions[0].rolloverCounter, 3U);
        g_bytes_unref(bytes);
        gst_mikey_message_unref(message);
        gst_caps_unref(caps);
    }
}

TEST(MikeyMessage, GStreamerReadsAMessage)
{
    gst_init(nullptr, nullptr);
    struct Case
    {
        SrtpSuite suite;
        std::string cipher;
        std::string auth;
    };
    for (const Case& expected : {Case{SrtpSuite::aesCm128HmacSha1Tag80, "aes-128-icm", "hmac-sha1-80"},
                                 Case{SrtpSuite::aesCm128HmacSha1Tag32, "aes-128-icm", "hmac-sha1-32"},
                                 Case{SrtpSuite::aeadAes128Gcm, "aes-128-gcm", "null"}})
    {
        const Bytes bytes = written(expected.suite);
        GstMIKEYMessage* const message =
            gst_mikey_message_new_from_data(bytes.data(), bytes.size(), nullptr, nullptr);
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(gst_mikey_message_get_cs_srtp(message, 0)->ssrc, 0x01020304U);
        EXPECT_EQ(gst_mikey_message_get_cs_srtp(message, 0)->roc, 5U);
        GstCaps* const caps = gst_caps_new_empty_simple("application/x-srtp");
        EXPECT_TRUE(gst_mikey_message_to_caps(message, caps));
        const GstStructure* const fields = gst_caps_get_structure(caps, 0);
        EXPECT_EQ(gst_structure_get_string(fields, "srtp-cipher"), expected.cipher);
        EXPECT_EQ(gst_structure_get_string(fields, "srtp-auth"), expected.auth);
        gst_caps_unref(caps);
        gst_mikey_message_unref(message);
    }
}

/// The places of what write() puts into a message with one crypto session.
struct Place
{
    static constexpr std::size_t type = 1;
    static constexpr std::size_t mapType = 9;
    static constexpr std::size_t policy = 10 + 9 + 10 + 18;  // its payload's first byte
    static constexpr std::size_t parameters = policy + 5;
    static constexpr std::size_t keyTransport = parameters + 24;
    static constexpr std::size_t keyType = keyTransport + 4 + 1;
};

struct Change
{
    const char* name;
    std::size_t at;
    std::uint8_t value;
    bool taken;
};

class MikeyMessageChangeTest : public testing::TestWithParam<Change>
{
};

TEST_P(MikeyMessageChangeTest, IsTakenOrRefused)
{
    Bytes message = written();
    message[GetParam().at] = GetParam().value;
    EXPECT_EQ(parse(message).has_value(), GetParam().taken);
}

INSTANTIATE_TEST_SUITE_P(Messages, MikeyMessageChangeTest,
                         testing::Values(Change{"OtherVersion", 0, 2, false},
                                         Change{"Answer", Place::type, 1, false},
                                         Change{"PublicKey", Place::type, 2, false},
                                         Change{"OtherMap", Place::mapType, 1, false},
                                         Change{"AnswerRequested", 3, 0x80, true},
                                         Change{"NoPolicyForSrtp", Place::policy + 2, 1, false},
                                         Change{"OtherCipher", Place::parameters + 2, 2, false},
                                         Change{"NoCipher", Place::parameters + 2, 0, false},
                                         Change{"LongerKey", Place::parameters + 5, 32, false},
                                         Change{"MediaNotEncrypted", Place::parameters + 8, 0, false},
                                         Change{"ReportsNotEncrypted", Place::parameters + 11, 0, false},
                                         Change{"NotAuthenticated", Place::parameters + 20, 0, false},
                                         Change{"OtherTag", Place::parameters + 23, 8, false},
                                         Change{"EmptyParameter", Place::parameters + 1, 0, false},
                                         Change{"EncryptedKey", Place::keyTransport + 1, 1, false},
                                         Change{"KeyToDeriveFrom", Place::keyType, 0x00, false},
                                         Change{"KeyWithoutItsSalt", Place::keyType, 0x30, false}),
                         [](const testing::TestParamInfo<Change>& instance) { return instance.param.name; });

}  // namespace
}  // namespace refhost
