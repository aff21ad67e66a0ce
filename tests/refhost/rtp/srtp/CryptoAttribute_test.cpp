#include "refhost/rtp/srtp/CryptoAttribute.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

const std::string key30 = "WVNfX19zZW1jdGwgKCkgewkyMjA7fQp9CnVubGVz";  // 30 bytes (RFC 4568, section 9.1)
const std::string key28 = "WVNfX19zZW1jdGwgKCkgewkyMjA7fQp9CnVubA==";
const std::string suite80 = "AES_CM_128_HMAC_SHA1_80";

struct Case
{
    const char* name;
    std::string value;
    std::optional<SrtpSuite> suite;
};

class CryptoAttributeTest : public testing::TestWithParam<Case>
{
};

TEST_P(CryptoAttributeTest, IsParsed)
{
    const auto key = CryptoAttribute::parse(GetParam().value);
    ASSERT_EQ(key.has_value(), GetParam().suite.has_value());
    if (key)
    {
        EXPECT_EQ(key->suite(), *GetParam().suite);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(key->data()), 8), "YS___sem");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Values, CryptoAttributeTest,
    testing::Values(
        Case{"Plain", "1 " + suite80 + " inline:" + key30, SrtpSuite::aesCm128HmacSha1Tag80},
        Case{"ShortTag", "1 AES_CM_128_HMAC_SHA1_32 inline:" + key30, SrtpSuite::aesCm128HmacSha1Tag32},
        Case{"Gcm", "9 AEAD_AES_128_GCM inline:" + key28, SrtpSuite::aeadAes128Gcm},
        Case{"Lifetime", "1 " + suite80 + " inline:" + key30 + "|2^20", SrtpSuite::aesCm128HmacSha1Tag80},
        Case{"Blanks", "1  " + suite80 + "   inline:" + key30 + " ", SrtpSuite::aesCm128HmacSha1Tag80},
        Case{"SecondKey", "1 " + suite80 + " inline:" + key30 + ";inline:" + key30,
             SrtpSuite::aesCm128HmacSha1Tag80},
        Case{"WindowSizeHint", "1 " + suite80 + " inline:" + key30 + " WSH=128",
             SrtpSuite::aesCm128HmacSha1Tag80},
        Case{"OptionalParameter", "1 " + suite80 + " inline:" + key30 + " -x=1",
             SrtpSuite::aesCm128HmacSha1Tag80},
        Case{"KeyIdentifier", "1 " + suite80 + " inline:" + key30 + "|2^20|1:4", std::nullopt},
        Case{"KeyIdentifierAlone", "1 " + suite80 + " inline:" + key30 + "|1:4", std::nullopt},
        Case{"NotEncrypted", "1 " + suite80 + " inline:" + key30 + " UNENCRYPTED_SRTP", std::nullopt},
        Case{"DerivationRate", "1 " + suite80 + " inline:" + key30 + " KDR=3", std::nullopt},
        Case{"UnknownSuite", "1 F8_128_HMAC_SHA1_80 inline:" + key30, std::nullopt},
        Case{"SuiteInLowerCase", "1 aes_cm_128_hmac_sha1_80 inline:" + key30, std::nullopt},
        Case{"ShortKey", "1 " + suite80 + " inline:" + key28, std::nullopt},
        Case{"LongKey", "1 AEAD_AES_128_GCM inline:" + key30, std::nullopt},
        Case{"NoTag", suite80 + " inline:" + key30, std::nullopt},
        Case{"LongTag", "1234567890 " + suite80 + " inline:" + key30, std::nullopt},
        Case{"NoBase64", "1 " + suite80 + " inline:!" + key30.substr(1), std::nullopt},
        Case{"OtherMethod", "1 " + suite80 + " outline:" + key30, std::nullopt}),
    [](const testing::TestParamInfo<Case>& instance) { return instance.param.name; });

TEST(CryptoAttribute, EveryPrefixIsRefused)
{
    const std::string value = "1 " + suite80 + " inline:" + key30;
    for (std::size_t size = 0; size < value.size(); ++size)
    {
        EXPECT_FALSE(CryptoAttribute::parse(value.substr(0, size))) << size;
    }
}

TEST(CryptoAttribute, WhatIsWrittenIsReadBack)
{
    for (const SrtpSuite suite :
         {SrtpSuite::aesCm128HmacSha1Tag80, SrtpSuite::aesCm128HmacSha1Tag32, SrtpSuite::aeadAes128Gcm})
    {
        const SrtpKey key = SrtpKey::random(suite);
        std::string text;
        CryptoAttribute::append(text, key);
        const auto read = CryptoAttribute::parse(text);
        ASSERT_TRUE(read) << text;
        EXPECT_TRUE(*read == key);
    }
}

}  // namespace
}  // namespace refhost
