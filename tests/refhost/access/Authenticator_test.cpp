#include "refhost/access/Authenticator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "refhost/access/DigestAuth.h"
#include "tests/refhost/rtsp/connection/SteppedClock.h"

namespace refhost
{
namespace
{

using Algorithm = DigestAuth::Algorithm;
using Verdict = Authenticator::Verdict;

constexpr const char* url = "rtsp://h/orv/live/1/0";
constexpr Authenticator::Client here{{1}, 7};
constexpr Authenticator::Client hereAgain{{1}, 8};  // the same address, another connection
constexpr Authenticator::Client elsewhere{{2}, 9};

class AuthenticatorTest : public testing::Test
{
protected:
    static std::string nonceOf(const std::string& challenge)
    {
        const std::size_t at = challenge.find("nonce=\"") + 7;
        return challenge.substr(at, challenge.find('"', at) - at);
    }

    /// The nonce of a new challenge.
    std::string challenge(bool stale = false)
    {
        challenges_ = authenticator_.challenges(stale, here);
        return nonceOf(challenges_.at(0));
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

    Verdict check(const std::string& uri, const std::string& header,
                  const Authenticator::Client& client = here)
    {
        return authenticator_.check({"DESCRIBE", uri, header, client}).verdict;
    }

    SteppedClock time_;
    Authenticator authenticator_{{{"admin", "secret"}, {"other", "p:w"}}, "here", time_};
    std::vector<std::string> challenges_;
};

TEST_F(AuthenticatorTest, WithoutUsersEverybodyIsGranted)
{
    Authenticator open({}, "here", time_);
    EXPECT_FALSE(open.enabled());
    EXPECT_EQ(open.check({"DESCRIBE", url, "", here}).verdict, Verdict::granted);
}

TEST_F(AuthenticatorTest, OffersMd5FirstAndLastOfDigestAndBasicLast)
{
    const std::string nonce = challenge();
    const auto digest = [&nonce](const std::string& algorithm) {
        return R"(Digest realm="here", nonce=")" + nonce + R"(", algorithm=)" + algorithm + R"(, qop="auth")";
    };
    EXPECT_EQ(challenges_, (std::vector<std::string>{digest("MD5"), digest("SHA-256"), digest("MD5"),
                                                     R"(Basic realm="here")"}));
}

TEST_F(AuthenticatorTest, BasicThatIsNotTakenIsNeitherOfferedNorGranted)
{
    for (const std::string& challenge : authenticator_.challenges(false, here, false))
    {
        EXPECT_EQ(challenge.rfind("Digest ", 0), 0U) << challenge;
    }
    EXPECT_EQ(authenticator_.check({"DESCRIBE", url, "Basic YWRtaW46c2VjcmV0", here, false}).verdict,
              Verdict::denied);
}

TEST_F(AuthenticatorTest, SaysStaleRightBehindTheNonceWhereSimpleClientsLook)
{
    const std::string nonce = challenge(true);
    EXPECT_NE(challenges_.at(0).find("nonce=\"" + nonce + "\", stale=true, algorithm=MD5"),
              std::string::npos);
}

TEST_F(AuthenticatorTest, GrantsTheRightPasswordByEveryMethod)
{
    const std::string nonce = challenge();
    EXPECT_EQ(check(url, "Basic YWRtaW46c2VjcmV0"), Verdict::granted);
    EXPECT_EQ(check(url, "basic  b3RoZXI6cDp3"), Verdict::granted);
    EXPECT_EQ(check(url, answer(Algorithm::md5, nonce, "00000001")), Verdict::granted);
    EXPECT_EQ(check(url, answer(Algorithm::sha256, nonce, "00000002")), Verdict::granted);
    EXPECT_EQ(check(url, answer(Algorithm::md5, nonce, "")), Verdict::granted);
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
        EXPECT_EQ(check(url, header), Verdict::denied) << header;
    }
    EXPECT_EQ(authenticator_.check({"PLAY", url, answer(Algorithm::md5, nonce, "00000001"), here}).verdict,
              Verdict::denied)
        << "the answer was for another method";
}

TEST_F(AuthenticatorTest, SaysWhyItDenies)
{
    using Denial = Authenticator::Denial;
    const std::string nonce = challenge();
    struct Case
    {
        std::string header;
        Denial denial;
    };
    std::string foreign = answer(Algorithm::md5, nonce, "00000001", "wrong");
    foreign.replace(foreign.find("realm=\"here\""), 12, "realm=\"away\"");
    for (const Case& c :
         {Case{"", Denial::scheme}, Case{"Bearer x", Denial::scheme}, Case{"Basic !", Denial::malformed},
          Case{"Digest x", Denial::malformed}, Case{"Basic YWRtaW46d3Jvbmc=", Denial::password},
          Case{"Basic bm9ib2R5Og==", Denial::user}, Case{foreign, Denial::realm},
          Case{answer(Algorithm::md5, nonce, "00000001", "secret", "/x"), Denial::resource},
          Case{answer(Algorithm::sha256, nonce, "00000001", "wrong"), Denial::password}})
    {
        EXPECT_EQ(authenticator_.check({"DESCRIBE", url, c.header, here}).denial, c.denial) << c.header;
    }
}

TEST_F(AuthenticatorTest, ReadsTheUserThatAHeaderNames)
{
    for (const auto& [header, user] : {std::pair<std::string, std::string>{"Basic YWRtaW46d3Jvbmc=", "admin"},
                                       {"Digest realm=\"x\", username=\"a b\"", "a b"},
                                       {"Basic YWRtaW4=", "admin"},
                                       {"Basic !", ""},
                                       {"Basic", ""},
                                       {"Bearer YWRtaW46d3Jvbmc=", ""},
                                       {"", ""}})
    {
        EXPECT_EQ(Authenticator::claimedUser(header), user) << header;
    }
}

TEST_F(AuthenticatorTest, UnknownUsersTakeAsLongAsWrongPasswords)
{
    const std::string nonce = challenge();
    const std::string known = answer(Algorithm::sha256, nonce, "00000001", "wrong");
    std::string unknown = known;
    unknown.replace(unknown.find("admin"), 5, "nobod");
    const auto medianOf = [this](const std::string& header)
    {
        std::vector<std::int64_t> times;
        for (int i = 0; i < 201; ++i)
        {
            timespec before{};
            timespec after{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
            check(url, header);
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
            times.push_back((after.tv_sec - before.tv_sec) * 1'000'000'000 + after.tv_nsec - before.tv_nsec);
        }
        std::nth_element(times.begin(), times.begin() + 100, times.end());
        return static_cast<double>(times[100]);
    };
    // The best of some: others may run on the same core meanwhile.
    double closest = 100;
    for (int i = 0; i < 20 && closest > 1.2; ++i)
    {
        const double ratio = medianOf(known) / medianOf(unknown);
        closest = std::min(closest, std::max(ratio, 1 / ratio));
    }
    EXPECT_LT(closest, 1.2);
}

TEST_F(AuthenticatorTest, NamesTheUserWhomItGrants)
{
    const std::string nonce = challenge();
    EXPECT_EQ(authenticator_.check({"DESCRIBE", url, "Basic b3RoZXI6cDp3", here}).user, "other");
    EXPECT_EQ(authenticator_.check({"DESCRIBE", url, answer(Algorithm::md5, nonce, "00000001"), here}).user,
              "admin");
    EXPECT_EQ(
        authenticator_.check({"DESCRIBE", url, answer(Algorithm::md5, nonce, "00000002", "wrong"), here})
            .user,
        "");
}

TEST_F(AuthenticatorTest, AnAnswerIsGoodFromTheAddressOfItsChallengeAlone)
{
    const std::string nonce = challenge();
    for (const char* const count : {"", "00000001"})
    {
        EXPECT_EQ(check(url, answer(Algorithm::md5, nonce, count), elsewhere), Verdict::stale) << count;
        EXPECT_EQ(check(url, answer(Algorithm::md5, nonce, count), here), Verdict::granted) << count;
    }
}

TEST_F(AuthenticatorTest, AnAnswerWithoutQopIsGoodOnItsConnectionAndForAMinuteOnOthers)
{
    const std::string header = answer(Algorithm::md5, challenge(), "");
    EXPECT_EQ(check(url, header, hereAgain), Verdict::granted);
    time_.advance(NonceStore::uncountedLifetime);
    EXPECT_EQ(check(url, header, hereAgain), Verdict::stale);
    EXPECT_EQ(check(url, header, here), Verdict::granted);
}

TEST_F(AuthenticatorTest, AnswersWithoutQopCanBeRefused)
{
    Authenticator strict({{"admin", "secret"}}, "here", time_, false);
    const std::string nonce = nonceOf(strict.challenges(false, here).at(0));
    EXPECT_EQ(strict.check({"DESCRIBE", url, answer(Algorithm::md5, nonce, ""), here}).verdict,
              Verdict::denied);
    EXPECT_EQ(strict.check({"DESCRIBE", url, answer(Algorithm::md5, nonce, "00000001"), here}).verdict,
              Verdict::granted);
}

TEST_F(AuthenticatorTest, AReplayedAnswerIsStale)
{
    const std::string header = answer(Algorithm::md5, challenge(), "00000001");
    EXPECT_EQ(check(url, header), Verdict::granted);
    EXPECT_EQ(check(url, header), Verdict::stale);
}

TEST_F(AuthenticatorTest, AnExpiredOrForeignNonceIsStaleOnlyWithTheRightPassword)
{
    const std::string nonce = challenge();
    time_.advance(NonceStore::lifetime);
    EXPECT_EQ(check(url, answer(Algorithm::md5, nonce, "00000001")), Verdict::stale);
    EXPECT_EQ(check(url, answer(Algorithm::md5, "mine", "00000001")), Verdict::stale);
    EXPECT_EQ(check(url, answer(Algorithm::md5, nonce, "00000001", "wrong")), Verdict::denied);
}

TEST_F(AuthenticatorTest, TheAnswerMustNameTheRequestsResource)
{
    const std::string nonce = challenge();
    EXPECT_EQ(check("/page", answer(Algorithm::md5, nonce, "00000001", "secret", "/page")), Verdict::granted);
    EXPECT_EQ(check("/page", answer(Algorithm::md5, nonce, "00000002", "secret", "/pag")), Verdict::denied);
}

TEST_F(AuthenticatorTest, AProtocolSaysWhichResourcesAreTheSame)
{
    const std::string nonce = challenge();
    const auto check = [&](const std::string& uri, const std::string& count)
    {
        const std::string header = answer(Algorithm::md5, nonce, count, "secret", "/page");
        return authenticator_
            .check({"DESCRIBE", uri, header, here, true,
                    [](std::string_view request, std::string_view digest)
                    { return request.substr(0, digest.size()) == digest; }})
            .verdict;
    };
    EXPECT_EQ(check("/page/part", "00000001"), Verdict::granted);
    EXPECT_EQ(check("/other", "00000002"), Verdict::denied);
}

}  // namespace
}  // namespace refhost
