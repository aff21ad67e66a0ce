#include "refhost/config/PasswordHash.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace refhost
{
namespace
{

std::string words(std::initializer_list<std::string_view> all)
{
    std::string text;
    for (const std::string_view word : all)
    {
        text.append(text.empty() ? "" : " ").append(word);
    }
    return text;
}

const std::string binding = "for:0123456789abcdef";
const std::string md5 = "md5:" + std::string(32, 'a');
const std::string sha256 = "sha-256:" + std::string(64, 'b');
const std::string digest = words({binding, md5, sha256});
const std::string crypt = "crypt:$y$j9T$abc./DEF$" + std::string(43, 'x');

TEST(PasswordHash, IsReadAndWrittenBack)
{
    for (const std::string& text : {digest, crypt, words({digest, crypt})})
    {
        const auto hash = PasswordHash::parse(text);
        ASSERT_TRUE(hash) << text;
        EXPECT_EQ(hash->text(), text);
        EXPECT_EQ(hash->servesDigest(), text != crypt);
    }
    const auto whole = PasswordHash::parse(words({crypt, "", sha256, md5, binding, ""}));
    ASSERT_TRUE(whole) << "in any order";
    EXPECT_EQ(whole->text(), words({digest, crypt}));
    EXPECT_EQ(whole->binding, "0123456789abcdef");
    EXPECT_EQ(whole->crypt, crypt.substr(6));
}

TEST(PasswordHash, OtherTextsAreRefused)
{
    for (const std::string& text : {std::string(),
                                    std::string(" "),
                                    std::string("secret"),
                                    binding,
                                    md5,
                                    words({binding, md5}),
                                    words({md5, sha256}),
                                    digest + "0",
                                    words({digest, md5}),
                                    digest + " md5:",
                                    digest + " x:1",
                                    words({"for:0123456789abcdeF", md5, sha256}),
                                    words({"for:0123456789abcdeg", md5, sha256}),
                                    words({md5, crypt}),
                                    crypt + "x",
                                    crypt.substr(0, crypt.size() - 1),
                                    std::string("crypt:$6$abc$def"),
                                    "crypt:$y$$abc$" + std::string(43, 'x'),
                                    "crypt:$y$j9T$$" + std::string(43, 'x'),
                                    "crypt:$y$j9T$abc$" + std::string(42, 'x') + "*",
                                    "crypt:$y$j9T$" + std::string(600, 'a') + "$" + std::string(43, 'x'),
                                    words({digest + "\t"}),
                                    digest + "\n",
                                    words({crypt, crypt})})
    {
        EXPECT_FALSE(PasswordHash::parse(text)) << text;
    }
}

TEST(PasswordHash, NoPrefixOfAWholeOneIsTakenForOneButItsDigestPart)
{
    const std::string text = words({digest, crypt});
    for (std::size_t length = 0; length < text.size(); ++length)
    {
        const auto hash = PasswordHash::parse(text.substr(0, length));
        EXPECT_EQ(hash.has_value(), length == digest.size() || length == digest.size() + 1) << length;
    }
}

TEST(PasswordHash, IsBoundToTheUserAndTheRealm)
{
    EXPECT_EQ(PasswordHash::bindingOf("admin", "ovrtspd").size(), 16U);
    EXPECT_EQ(PasswordHash::bindingOf("admin", "ovrtspd"), PasswordHash::bindingOf("admin", "ovrtspd"));
    EXPECT_NE(PasswordHash::bindingOf("admin", "ovrtspd"), PasswordHash::bindingOf("Admin", "ovrtspd"));
    EXPECT_NE(PasswordHash::bindingOf("admin", "ovrtspd"), PasswordHash::bindingOf("admin", "yard"));
}

}  // namespace
}  // namespace refhost
