#include "refhost/capture/CameraLogin.h"

#include <gmock/gmock.h>

#include "refhost/access/DigestAuth.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;
using testing::StartsWith;

CameraMessage demand(std::initializer_list<std::string> demands)
{
    CameraMessage message;
    message.status = 401;
    for (const std::string& text : demands)
    {
        message.headers.emplace_back("www-authenticate", text);
    }
    return message;
}

/// Judges a Digest answer as a server does.
bool isRight(const std::string& authorization)
{
    DigestAuth::Answer answer;
    if (authorization.rfind("Digest ", 0) != 0 ||
        !DigestAuth::parse(std::string_view(authorization).substr(7), answer))
    {
        return false;
    }
    return answer.response ==
           DigestAuth::expected(answer, DigestAuth::secret(answer.algorithm, "guard", answer.realm, "a b"),
                                "DESCRIBE");
}

TEST(CameraLogin, NothingIsSaidUnasked)
{
    EXPECT_EQ(CameraLogin("guard", "a b").authorization("DESCRIBE", "rtsp://h/x"), "");
}

TEST(CameraLogin, BasicIsAnswered)
{
    CameraLogin login("Aladdin", "open sesame");
    EXPECT_TRUE(login.challenge(demand({"Basic realm=\"x\""})));
    EXPECT_EQ(login.authorization("DESCRIBE", "rtsp://h/x"), "Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==");
}

TEST(CameraLogin, DigestIsAnsweredWithAndWithoutQop)
{
    for (const char* text :
         {R"(Digest realm="r, s", nonce="n")", R"(Digest realm="r", nonce="n", qop="auth")",
          R"(Digest realm="r",nonce="n",qop="auth-int,auth",algorithm=MD5)",
          R"(Digest realm="r", nonce=n, algorithm=SHA-256)",
          R"(Digest realm="r", nonce="n", algorithm=SHA-256, qop="auth,auth-int")"})
    {
        CameraLogin login("guard", "a b");
        EXPECT_TRUE(login.challenge(demand({text}))) << text;
        EXPECT_TRUE(isRight(login.authorization("DESCRIBE", "rtsp://h/x"))) << text;
        EXPECT_TRUE(isRight(login.authorization("DESCRIBE", "rtsp://h/x"))) << text;
    }
}

TEST(CameraLogin, SafestDemandIsMet)
{
    CameraLogin login("guard", "a b");
    EXPECT_TRUE(login.challenge(demand({R"(Digest realm="r", nonce="n")", "Basic realm=\"r\"",
                                        R"(Digest realm="r", nonce="n", algorithm=SHA-256)"})));
    EXPECT_THAT(login.authorization("DESCRIBE", "rtsp://h/x"), HasSubstr("SHA-256"));
    EXPECT_TRUE(login.challenge(demand({"Basic realm=\"r\"", R"(Digest realm="r", nonce="n", opaque="o")"})));
    EXPECT_THAT(login.authorization("DESCRIBE", "rtsp://h/x"), StartsWith("Digest "));
    EXPECT_THAT(login.authorization("DESCRIBE", "rtsp://h/x"), HasSubstr("opaque=\"o\""));
}

TEST(CameraLogin, DemandsThatCannotBeMetAreReported)
{
    CameraLogin login("guard", "a b");
    for (const char* text : {"", "Digest", "Digest realm=", "Digest nonce", R"(Digest nonce="n)",
                             "Negotiate x", R"(Digest realm="r", nonce="n", algorithm=SHA-512)",
                             R"(Digest realm="r", nonce="n", qop="auth-int")"})
    {
        if (std::string(text) != R"(Digest nonce="n)")
        {
            EXPECT_FALSE(login.challenge(demand({text}))) << text;
        }
    }
    EXPECT_FALSE(CameraLogin("", "").challenge(demand({"Basic realm=\"r\""})));
}

TEST(CameraLogin, SeveralDemandsMayStandInOneHeader)
{
    for (const char* text :
         {R"(Basic realm="a, b", Digest realm="r", nonce="n", qop="auth")",
          R"(Digest realm="r", nonce="n", qop="auth", Basic realm="a, b")",
          R"(Negotiate, Digest nonce = "n" , realm = "r",Basic realm="x")",
          R"(Digest realm="r", nonce="n", algorithm=MD5, Digest realm="r", nonce="m", algorithm=SHA-512)"})
    {
        CameraLogin login("guard", "a b");
        EXPECT_TRUE(login.challenge(demand({text}))) << text;
        const std::string answer = login.authorization("DESCRIBE", "rtsp://h/x");
        EXPECT_THAT(answer, HasSubstr(R"(nonce="n")")) << text;
        EXPECT_TRUE(isRight(answer)) << answer;
    }
}

TEST(CameraLogin, AUsedUpNonceIsDistinguishedFromARefusedPassword)
{
    CameraLogin login("guard", "a b");
    EXPECT_TRUE(login.challenge(demand({R"(Digest realm="r", nonce="n", stale=TRUE)"})));
    EXPECT_TRUE(login.stale());
    EXPECT_TRUE(login.challenge(demand({R"(Digest realm="r", nonce="n", stale="false")"})));
    EXPECT_FALSE(login.stale());
}

TEST(CameraLogin, AlgorithmIsSentAsTheCameraWritesIt)
{
    CameraLogin login("guard", "a b");
    EXPECT_TRUE(login.challenge(demand({R"(Digest realm="r", nonce="n", algorithm="md5")"})));
    EXPECT_THAT(login.authorization("DESCRIBE", "rtsp://h/x"), HasSubstr(", algorithm=md5"));
    EXPECT_TRUE(login.challenge(demand({R"(Digest realm="r", nonce="n")"})));
    EXPECT_THAT(login.authorization("DESCRIBE", "rtsp://h/x"), testing::Not(HasSubstr("algorithm")));
}

TEST(CameraLogin, QuotesAreEscaped)
{
    CameraLogin login(R"(a"b\c)", "p");
    EXPECT_TRUE(login.challenge(demand({R"(Digest realm="the \"r\"", nonce="n")"})));
    EXPECT_THAT(login.authorization("DESCRIBE", "rtsp://h/x"),
                StartsWith(R"(Digest username="a\"b\\c", realm="the \"r\"", nonce="n",)"));
}

}  // namespace
}  // namespace refhost
