#include "refhost/rtsp/Authenticator.h"

#include <gtest/gtest.h>

#include "refhost/rtsp/DigestAuth.h"
#include "tests/refhost/rtsp/SteppedClock.h"

namespace refhost
{
namespace
{

using Algorithm = DigestAuth::Algorithm;
using Verdict = Authenticator::Verdict;

constexpr const char* url = "rtsp://h/orv/live/1/0";

class AuthenticatorTest : public testing::Test
{
protected:
    /// The nonce of a fresh challenge.
    std::string challenge(bool stale = false)
    {
        ResponseWriter writer;
        writer.begin(rtspUnauthorized, "1");
        authenticator_.challenge(writer, stale);
        challenge_ = std::string(writer.finish());
        const std::size_t at = challenge_.find("nonce=\"") + 7;
        return challenge_.substr(at, challenge_.find('"', at) - at);
    }

    std::string answer(Algorithm algorithm, const std::string& nonce, const std::string& count,
                       const std::string& password = "secret", const std::string& uri = url) const
    {
        std::string text = "username=\"admin\", realm=\"here\", nonce=\"" + nonce + "\", uri=\"" + uri + "\"";
        text += algorithm == Algorithm::md5 ? ", algorithm=MD5" : ", algorithm=SHA-256";
        if (!count.empty())
        {
            text += ", qop=auth, nc=" + count + ", cnonce=\"abc\"";
        }
        DigestAuth::Answer parsed;
        const std::string withResponse = text + ", response=\"x\"";
        EXPECT_TRUE(DigestAuth::parse(withResponse, parsed));
        const std::string secret = DigestAuth::secret(algorithm, "admin", "here", password);
        return "Digest " + text + ", response=\"" + DigestAuth::expected(parsed, secret, "DESCRIBE") + "\"";
    }

    SteppedClock time_;
    Authenticator authenticator_{{{"admin", "secret"}, {"other", "p:w"}}, "here", time_.clock()};
    std::string challenge_;
};

TEST_F(AuthenticatorTest, WithoutUsersEverybodyIsGranted)
{
    Authenticator open({}, "here", time_.clock());
    EXPECT_FALSE(open.enabled());
    EXPECT_EQ(open.check("DESCRIBE", url, ""), Verdict::granted);
}

TEST_F(AuthenticatorTest, OffersSha256ThenMd5ThenBasic)
{
    const std::string nonce = challenge();
    const std::size_t sha256 = challenge_.find("Digest realm=\"here\", nonce=\"" + nonce +
                                               "\", algorithm=SHA-256, qop=\"auth\"\r\n");
    const std::size_t md5 =
        challenge_.find("Digest realm=\"here\", nonce=\"" + nonce + "\", algorithm=MD5, qop=\"auth\"\r\n");
    const std::size_t basic = challenge_.find("WWW-Authenticate: Basic realm=\"here\"\r\n");
    ASSERT_NE(sha256, std::string::npos);
    ASSERT_NE(md5, std::string::npos);
    ASSERT_NE(basic, std::string::npos);
    EXPECT_LT(sha256, md5);
    EXPECT_LT(md5, basic);
    EXPECT_EQ(challenge_.find("stale"), std::string::npos);
    challenge(true);
    EXPECT_NE(challenge_.find(", stale=true\r\n"), std::string::npos);
}

TEST_F(AuthenticatorTest, GrantsTheRightPasswordByEveryMethod)
{
    const std::string nonce = challenge();
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, "Basic YWRtaW46c2VjcmV0"), Verdict::granted);
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, "basic  b3RoZXI6cDp3"), Verdict::granted);
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, answer(Algorithm::md5, nonce, "00000001")),
              Verdict::granted);
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, answer(Algorithm::sha256, nonce, "00000002")),
              Verdict::granted);
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, answer(Algorithm::md5, nonce, "")), Verdict::granted);
}

TEST_F(AuthenticatorTest, DeniesEverythingElse)
{
    const std::string nonce = challenge();
    for (const std::string& header :
         {std::string(), std::string("Basic"), std::string("Basic "), std::string("Basic !!!!"),
          std::string("Basic YWRtaW4="), std::string("Basic YWRtaW46d3Jvbmc="),
          std::string("Basic bm9ib2R5Og=="), std::string("Bearer x"), std::string("Digest "),
          std::string("Digest username=\"admin\""), answer(Algorithm::md5, nonce, "00000001", "wrong"),
          answer(Algorithm::sha256, nonce, "00000001", "wrong"), answer(Algorithm::md5, nonce, "00000000")})
    {
        EXPECT_EQ(authenticator_.check("DESCRIBE", url, header), Verdict::denied) << header;
    }
    EXPECT_EQ(authenticator_.check("PLAY", url, answer(Algorithm::md5, nonce, "00000001")), Verdict::denied)
        << "the answer was for another method";
}

TEST_F(AuthenticatorTest, AReplayedAnswerIsStale)
{
    const std::string header = answer(Algorithm::md5, challenge(), "00000001");
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, header), Verdict::granted);
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, header), Verdict::stale);
}

TEST_F(AuthenticatorTest, AnExpiredOrForeignNonceIsStaleOnlyWithTheRightPassword)
{
    const std::string nonce = challenge();
    time_.advance(NonceBook::lifetimeMs);
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, answer(Algorithm::md5, nonce, "00000001")),
              Verdict::stale);
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, answer(Algorithm::md5, "mine", "00000001")),
              Verdict::stale);
    EXPECT_EQ(authenticator_.check("DESCRIBE", url, answer(Algorithm::md5, nonce, "00000001", "wrong")),
              Verdict::denied);
}

TEST_F(AuthenticatorTest, TheAnswerMustNameTheRequestsResource)
{
    const std::string nonce = challenge();
    const std::string track = std::string(url) + "/trackID=0";
    EXPECT_EQ(authenticator_.check("DESCRIBE", track, answer(Algorithm::md5, nonce, "00000001")),
              Verdict::granted)
        << "a client may name the presentation";
    EXPECT_EQ(authenticator_.check("DESCRIBE", std::string(url) + "/?x=y",
                                   answer(Algorithm::md5, nonce, "00000002")),
              Verdict::granted);
    EXPECT_EQ(
        authenticator_.check("DESCRIBE", "rtsp://h/orv/live/1/1", answer(Algorithm::md5, nonce, "00000003")),
        Verdict::denied);
    EXPECT_EQ(
        authenticator_.check("DESCRIBE", url, answer(Algorithm::md5, nonce, "00000004", "secret", track)),
        Verdict::denied);
}

}  // namespace
}  // namespace refhost
