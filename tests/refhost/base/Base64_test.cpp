#include "refhost/base/Base64.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

struct Case
{
    const char* plain;
    const char* encoded;
};

// RFC 4648, section 10.
constexpr Case cases[] = {{"", ""},
                          {"f", "Zg=="},
                          {"fo", "Zm8="},
                          {"foo", "Zm9v"},
                          {"foob", "Zm9vYg=="},
                          {"fooba", "Zm9vYmE="},
                          {"foobar", "Zm9vYmFy"}};

TEST(Base64, IsWrittenAndReadBack)
{
    for (const Case& each : cases)
    {
        const std::string plain = each.plain;
        const std::vector<std::uint8_t> bytes(plain.begin(), plain.end());
        EXPECT_EQ(base64Of(bytes.data(), bytes.size()), each.encoded);
        EXPECT_EQ(bytesOfBase64(each.encoded), bytes) << each.encoded;
    }
}

TEST(Base64, MayLackItsPadding)
{
    EXPECT_EQ(bytesOfBase64("Zg"), std::vector<std::uint8_t>{'f'});
    EXPECT_EQ(bytesOfBase64("Zg="), std::vector<std::uint8_t>{'f'});
}

TEST(Base64, AnotherTextIsNone)
{
    for (const char* const text : {"Z", "Zm9vY", "Zm9-", "Zm 9v", "Zg===", "=Zg="})
    {
        EXPECT_EQ(bytesOfBase64(text), std::nullopt) << text;
    }
}

TEST(Base64, HoldsEveryByte)
{
    std::vector<std::uint8_t> bytes;
    for (int i = 0; i < 256; ++i)
    {
        bytes.push_back(static_cast<std::uint8_t>(i));
        EXPECT_EQ(bytesOfBase64(base64Of(bytes.data(), bytes.size())), bytes);
    }
}

}  // namespace
}  // namespace refhost
