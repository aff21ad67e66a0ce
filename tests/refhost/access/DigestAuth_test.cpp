#include "refhost/access/DigestAuth.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

using Algorithm = DigestAuth::Algorithm;

// The examples of RFC 2617, section 3.5, and RFC 7616, section 3.9.1.
constexpr std::string_view md5Example =
    "username=\"Mufasa\", realm=\"testrealm@host.com\", nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", "
    "uri=\"/dir/index.html\", qop=auth, nc=00000001, cnonce=\"0a4f113b\", "
    "response=\"6629fae49393a05397450978507c4ef1\", opaque=\"5ccc069c403ebaf9f0171e9517f40e41\"";
constexpr std::string_view sha256Example =
    "username=\"Mufasa\", realm=\"http-auth@example.org\", uri=\"/dir/index.html\", algorithm=SHA-256, "
    "nonce=\"7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v\", nc=00000001, "
    "cnonce=\"f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ\", qop=auth, "
    "response=\"753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1\"";

TEST(DigestAuth, ComputesTheMd5ExampleOfTheStandard)
{
    DigestAuth::Answer answer;
    ASSERT_TRUE(DigestAuth::parse(md5Example, answer));
    const std::string secret =
        DigestAuth::secret(Algorithm::md5, "Mufasa", "testrealm@host.com", "Circle Of Life");
    EXPECT_EQ(DigestAuth::expected(answer, secret, "GET"), answer.response);
    EXPECT_NE(DigestAuth::expected(answer, secret, "PUT"), answer.response);
}

TEST(DigestAuth, ComputesTheSha256ExampleOfTheStandard)
{
    DigestAuth::Answer answer;
    ASSERT_TRUE(DigestAuth::parse(sha256Example, answer));
    EXPECT_EQ(answer.algorithm, Algorithm::sha256);
    const std::string secret =
        DigestAuth::secret(Algorithm::sha256, "Mufasa", "http-auth@example.org", "Circle of Life");
    EXPECT_EQ(DigestAuth::expected(answer, secret, "GET"), answer.response);
}

TEST(DigestAuth, ComputesTheOldFormWithoutQop)
{
    DigestAuth::Answer answer;
    ASSERT_TRUE(DigestAuth::parse("username=\"u\",realm=\"r\",nonce=\"n\",uri=\"rtsp://h/a\",response=\"x\"",
                                  answer));
    const std::string secret = DigestAuth::secret(Algorithm::md5, "u", "r", "p");
    const std::string request = DigestAuth::hash(Algorithm::md5, "PLAY:rtsp://h/a");
    EXPECT_EQ(DigestAuth::expected(answer, secret, "PLAY"),
              DigestAuth::hash(Algorithm::md5, secret + ":n:" + request));
}

TEST(DigestAuth, RefusesIncompleteAndUnsupportedAnswers)
{
    DigestAuth::Answer answer;
    for (const char* const text :
         {"", "username", "username=\"u\"", "username=\"u\",nonce=\"n\",uri=\"a\"",
          "username=\"u\",nonce=\"n\",response=\"x\"", "nonce=\"n\",uri=\"a\",response=\"x\"",
          "username=\"u\",nonce=\"n\",uri=\"a\",response=\"x\",algorithm=MD5-sess",
          "username=\"u\",nonce=\"n\",uri=\"a\",response=\"x\",algorithm=SHA-512-256",
          "username=\"u\",nonce=\"n\",uri=\"a\",response=\"x\",qop=auth-int,nc=00000001,cnonce=\"c\"",
          "username=\"u\",nonce=\"n\",uri=\"a\",response=\"x\",qop=auth,cnonce=\"c\"",
          "username=\"u\",nonce=\"n\",uri=\"a\",response=\"x\",qop=auth,nc=1,cnonce=\"c\"",
          "username=\"u\",nonce=\"n\",uri=\"a\",response=\"x\",qop=auth,nc=0000000g,cnonce=\"c\"",
          "username=\"u\",nonce=\"n\",uri=\"a\",response=\"x\",qop=auth,nc=00000001"})
    {
        EXPECT_FALSE(DigestAuth::parse(text, answer)) << text;
    }
}

TEST(DigestAuth, NoPrefixOfAnAnswerDoesHarm)
{
    for (std::size_t size = 0; size < sha256Example.size(); ++size)
    {
        DigestAuth::Answer answer;
        if (DigestAuth::parse(sha256Example.substr(0, size), answer))
        {
            EXPECT_FALSE(answer.response.empty());
        }
    }
}

TEST(DigestAuth, ComparesWholeTexts)
{
    EXPECT_TRUE(DigestAuth::equalInConstantTime("abc", "abc"));
    EXPECT_TRUE(DigestAuth::equalInConstantTime("", ""));
    EXPECT_FALSE(DigestAuth::equalInConstantTime("abd", "abc"));
    EXPECT_FALSE(DigestAuth::equalInConstantTime("ab", "abc"));
    EXPECT_FALSE(DigestAuth::equalInConstantTime("", "abc"));
    EXPECT_FALSE(DigestAuth::equalInConstantTime("abcabc", "abc"));
}

}  // namespace
}  // namespace refhost
