#include "refhost/http/AccountRoutes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "refhost/base/Base64.h"
#include "refhost/http/SignInCookie.h"
#include "tests/refhost/http/HttpServiceFixture.h"

namespace refhost
{
namespace
{

using nlohmann::json;
using test::HttpAnswer;
using test::HttpTestClient;
using testing::HasSubstr;
using testing::Not;

const std::string type = "Content-Type: application/json\r\n";
const std::string page = "X-Requested-With: page\r\n";

class AccountRoutesTest : public test::HttpServiceFixture
{
protected:
    AccountRoutesTest()
    {
        config.users = {{"anna", "a"}, {"bert", "b", "", {"1", "none", "none", "none"}}};
    }

    void serve()
    {
        HttpService& made = make();
        AccountRoutes::add(made.router(), made.users(), made.guard());
        const auto reply = [](const HttpRequest& request)
        { return HttpReply::of("text/plain", "user " + request.user); };
        route("GET", "/cameras/{camera}", reply, HttpAccess::camera(Right::live));
        route("DELETE", "/cameras/{camera}", reply, HttpAccess::camera(Right::admin));
        start();
    }

    HttpAnswer ask(const std::string& method, const std::string& target,
                   const std::string& headers = "") const
    {
        HttpTestClient once(service->port());
        return once.request(method, target, headers);
    }

    static std::string as(const std::string& user, const std::string& password)
    {
        const std::string pair = user + ":" + password;
        return basic(base64Of(reinterpret_cast<const unsigned char*>(pair.data()), pair.size()));
    }

    HttpAnswer signIn(const std::string& user, const std::string& password) const
    {
        return ask("POST", "/api/v1/session", type + page + as(user, password));
    }

    /// Signs in. \returns the header that the browser sends from then on
    std::string cookieOf(const std::string& user, const std::string& password) const
    {
        const HttpAnswer answer = signIn(user, password);
        EXPECT_EQ(answer.status, 204);
        const std::string cookie = answer.field("set-cookie");
        return "Cookie: other=1; " + cookie.substr(0, cookie.find(';')) + "\r\n";
    }

    json me(const std::string& headers) const
    {
        const HttpAnswer answer = get("/api/v1/me", headers);
        EXPECT_EQ(answer.status, 200);
        return json::parse(answer.body, nullptr, false);
    }
};

TEST_F(AccountRoutesTest, ACookieStandsForWhoSignedIn)
{
    serve();
    const std::string anna = cookieOf("anna", "a");
    EXPECT_EQ(me(anna), json::parse(R"({"user": "anna", "rights": ["live", "playback", "talk", "admin"],
                                        "mayChange": true, "signedIn": true, "canSignIn": true})"));
    EXPECT_EQ(get("/cameras/1", anna).body, "user anna");
    const std::string bert = cookieOf("bert", "b");
    EXPECT_EQ(get("/cameras/1", bert).body, "user bert");
    EXPECT_EQ(get("/cameras/2", bert).status, 403);
    EXPECT_EQ(ask("DELETE", "/cameras/1", page + bert).status, 403);
    EXPECT_EQ(ask("DELETE", "/cameras/1", page + anna).status, 200);
}

TEST_F(AccountRoutesTest, TheCookieIsForThisServersPagesAlone)
{
    serve();
    EXPECT_THAT(signIn("anna", "a").field("set-cookie"),
                testing::MatchesRegex("ovrtspd=[0-9A-F]{64}; Path=/; HttpOnly; SameSite=Strict"));
    EXPECT_EQ(SignInCookie::text("x", true), "__Host-ovrtspd=x; Path=/; HttpOnly; SameSite=Strict; Secure");
    EXPECT_EQ(SignInCookie::text("", false), "ovrtspd=; Path=/; HttpOnly; SameSite=Strict; Max-Age=0");
}

TEST_F(AccountRoutesTest, WrongPasswordsSignNobodyIn)
{
    serve();
    for (const auto& [user, password] : {std::pair("anna", "b"), {"anna", ""}, {"carl", "a"}, {"", ""}})
    {
        const HttpAnswer answer = signIn(user, password);
        EXPECT_EQ(answer.status, 401) << user;
        EXPECT_EQ(answer.fields.count("set-cookie"), 0U);
    }
    EXPECT_EQ(ask("POST", "/api/v1/session", type + page).status, 401);
    EXPECT_EQ(ask("POST", "/api/v1/session", as("anna", "a")).status, 415) << "as a form would send it";
    EXPECT_EQ(users->signIns.count(), 0U);
}

TEST_F(AccountRoutesTest, WhoGuessesIsRefused)
{
    config.auth.freeFailures = 1;
    config.auth.refuseAfter = 1;
    config.auth.failureMemory = 86400;
    config.auth.exemptLoopback = false;
    serve();
    EXPECT_EQ(signIn("anna", "wrong").status, 401);
    const HttpAnswer refused = signIn("anna", "a");
    EXPECT_EQ(refused.status, 429);
    EXPECT_FALSE(refused.field("retry-after").empty());
}

TEST_F(AccountRoutesTest, WithoutUsersNobodySignsIn)
{
    config.users.clear();
    serve();
    EXPECT_EQ(me("").at("canSignIn"), false);
    EXPECT_EQ(signIn("anna", "a").status, 409);
}

TEST_F(AccountRoutesTest, PagesOfOthersDoNotUseTheCookie)
{
    serve();
    const std::string cookie = cookieOf("anna", "a");
    for (const char* const foreign :
         {"Origin: http://evil.example\r\n", "Origin: http://127.0.0.1:1\r\n", "Origin: null\r\n",
          "Sec-Fetch-Site: cross-site\r\n", "Sec-Fetch-Site: same-site\r\n"})
    {
        EXPECT_EQ(get("/cameras/1", cookie + foreign).status, 401) << foreign;
        EXPECT_NE(ask("DELETE", "/cameras/1", cookie + page + foreign).status, 200) << foreign;
    }
    for (const char* const own :
         {"Origin: http://127.0.0.1\r\n", "Sec-Fetch-Site: same-origin\r\n", "Sec-Fetch-Site: none\r\n"})
    {
        EXPECT_EQ(get("/cameras/1", cookie + own).status, 200) << own;
    }
    EXPECT_EQ(ask("DELETE", "/cameras/1", cookie).status, 403) << "a form or a link";
}

TEST_F(AccountRoutesTest, SigningOutEndsIt)
{
    serve();
    const std::string cookie = cookieOf("anna", "a");
    const HttpAnswer answer = ask("DELETE", "/api/v1/session", page + cookie);
    EXPECT_EQ(answer.status, 204);
    EXPECT_THAT(answer.field("set-cookie"), HasSubstr("Max-Age=0"));
    EXPECT_EQ(get("/cameras/1", cookie).status, 401);
    EXPECT_TRUE(me(cookie).at("user").is_null());
    EXPECT_EQ(ask("DELETE", "/api/v1/session", page + cookie).status, 204);
}

TEST_F(AccountRoutesTest, AnotherPasswordEndsItToo)
{
    serve();
    const std::string cookie = cookieOf("anna", "a");
    config.users[0].password = "c";
    users->setUsers(config.users, {});
    EXPECT_EQ(get("/cameras/1", cookie).status, 401);
    EXPECT_EQ(get("/cameras/1", cookieOf("anna", "c")).status, 200);
}

TEST_F(AccountRoutesTest, CookiesThatAreNotGoodAreNone)
{
    config.users.push_back({"anonymous", "", "", {"2", "none", "none", "none"}});
    serve();
    const std::string good = cookieOf("anna", "a");
    const std::string pair = good.substr(17, good.size() - 19);
    const std::string twice = pair + "; ";
    for (const std::string& cookie :
         {std::string("ovrtspd="), std::string("ovrtspd"), std::string("ovrtspd=00"), "x" + pair, pair + "0",
          "__Host-" + pair, twice + pair, std::string(";;; ;=;"), std::string(4000, ';')})
    {
        const std::string header = "Cookie: " + cookie + "\r\n";
        EXPECT_EQ(get("/cameras/1", header).status, 401) << cookie;
        EXPECT_EQ(get("/cameras/2", header).body, "user ") << cookie;
    }
    EXPECT_EQ(get("/cameras/1", "Cookie: " + pair + "\r\n").status, 200);
    EXPECT_EQ(get("/cameras/1", "Cookie: a=b\r\nCookie: c=d;" + pair + ";e=f\r\n").status, 200);
}

TEST_F(AccountRoutesTest, ThePageAsksForThePasswordAndNotTheBrowser)
{
    serve();
    EXPECT_EQ(get("/cameras/1", page).field("www-authenticate"), "Session realm=\"ovrtspd\"");
    EXPECT_THAT(get("/cameras/1").field("www-authenticate"), Not(HasSubstr("Session")));
}

TEST_F(AccountRoutesTest, WhereNoPasswordIsTakenTheBrowserAsksByDigest)
{
    config.auth.basic = "never";
    serve();
    EXPECT_EQ(me(page).at("canSignIn"), false);
    EXPECT_THAT(get("/cameras/1", page).field("www-authenticate"), HasSubstr("Digest"));
    EXPECT_EQ(signIn("anna", "a").status, 401);
}

TEST_F(AccountRoutesTest, CredentialsComeBeforeTheCookie)
{
    serve();
    EXPECT_EQ(get("/cameras/1", cookieOf("anna", "a") + as("bert", "b")).body, "user bert");
}

}  // namespace
}  // namespace refhost
