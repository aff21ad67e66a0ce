#include "refhost/rtp/srtp/HmacSha1.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "refhost/base/Hex.h"

namespace refhost
{
namespace
{

const std::uint8_t* bytesOf(std::string_view text)
{
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

std::string digestOf(std::string_view key, std::string_view message, std::string_view more = {})
{
    const HmacSha1 hmac(bytesOf(key), key.size());
    std::string text;
    for (const std::uint8_t byte : hmac.of(bytesOf(message), message.size(), bytesOf(more), more.size()))
    {
        appendHex8(text, byte);
    }
    return text;
}

}  // namespace

// RFC 2202, section 3.
TEST(HmacSha1, GivesTheDigestsOfTheStandard)
{
    EXPECT_EQ(digestOf(std::string(20, '\x0b'), "Hi There"), "b617318655057264e28bc0b6fb378c8ef146be00");
    EXPECT_EQ(digestOf("Jefe", "what do ya want for nothing?"), "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
    EXPECT_EQ(digestOf(std::string(20, '\xaa'), std::string(50, '\xdd')),
              "125d7342b9ac11cd91a39af48aa17b4f63f175d3");
}

TEST(HmacSha1, TakesAMessageInTwoParts)
{
    EXPECT_EQ(digestOf("Jefe", "what do ya want ", "for nothing?"),
              digestOf("Jefe", "what do ya want for nothing?"));
}

TEST(HmacSha1, ServesManyMessages)
{
    const HmacSha1 hmac(bytesOf("Jefe"), 4);
    const auto first = hmac.of(bytesOf("a"), 1, nullptr, 0);
    const auto second = hmac.of(bytesOf("b"), 1, nullptr, 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(hmac.of(bytesOf("a"), 1, nullptr, 0), first);
}

}  // namespace refhost
