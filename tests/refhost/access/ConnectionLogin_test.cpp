#include "refhost/access/ConnectionLogin.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>

#include "refhost/access/DigestAuth.h"
#include "refhost/access/SlowHash.h"
#include "refhost/base/Base64.h"
#include "refhost/base/ChangeSignal.h"
#include "refhost/config/PasswordHash.h"
#include "tests/refhost/rtsp/connection/SteppedClock.h"

namespace refhost
{
namespace
{

using Result = ConnectionLogin::Result;
using Outcome = ConnectionLogin::Outcome;

/// Counts announcements.
class Announcements
{
public:
    Announcements()
        : id_(ChangeSignal::instance().subscribe(
              [this]
              {
                  const std::lock_guard<std::mutex> guard(mutex_);
                  ++count_;
                  changed_.notify_all();
              }))
    {
    }
    ~Announcements()
    {
        ChangeSignal::instance().unsubscribe(id_);
    }
    Announcements(const Announcements&) = delete;
    Announcements& operator=(const Announcements&) = delete;

    /// Waits for one that was not waited for yet.
    bool next()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [this] { return count_ > taken_; }) &&
               ++taken_ > 0;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
    int taken_ = 0;
    const int id_;
};

std::string basic(const std::string& user, const std::string& password)
{
    const std::string text = user + ":" + password;
    return "Basic " + base64Of(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

class ConnectionLoginTest : public testing::Test
{
protected:
    static ServerConfig config()
    {
        ServerConfig values;
        values.users = {{"plain", "secret"}, {"slow", ""}, {"certified", ""}};
        PasswordHash hash;
        hash.crypt = SlowHash::make("secret");
        values.users[1].passwordHash = hash.text();
        values.auth.basic = "always";
        values.auth.exemptLoopback = false;
        values.auth.freeFailures = 1;
        values.auth.refuseAfter = 3;
        values.tls.clientCa = "ca.pem";
        values.tls.certificateUsers = true;
        return values;
    }

    Outcome attempt(const std::string& authorization, const std::string& certificate = "", bool last = false)
    {
        return login_.attempt({"GET", "/page", authorization, peer_, 7, true, certificate}, last);
    }

    /// The same until it is decided.
    Outcome decided(const std::string& authorization)
    {
        Outcome out = attempt(authorization);
        while (out.result == Result::pending && changes_.next())
        {
            EXPECT_EQ(users_.brake.failing(), failing_);
            out = attempt(authorization);
        }
        return out;
    }

    SteppedClock time_;
    Announcements changes_;
    UserAccess users_{config(), time_};
    const SocketAddress peer_ = *SocketAddress::parse("192.0.2.1");
    ConnectionLogin login_{users_};
    std::size_t failing_ = 0;
};

TEST_F(ConnectionLoginTest, LogsInByBasic)
{
    EXPECT_EQ(attempt("").result, Result::challenge);
    EXPECT_EQ(login_.user(), "");
    const Outcome granted = decided(basic("plain", "secret"));
    EXPECT_EQ(granted.result, Result::granted);
    EXPECT_EQ(granted.user, "plain");
    EXPECT_EQ(login_.user(), "plain");
    EXPECT_EQ(users_.brake.failing(), 0U) << "a request without credentials is no failure";
}

TEST_F(ConnectionLoginTest, APasswordThatIsBeingCheckedIsNoFailure)
{
    EXPECT_EQ(attempt(basic("slow", "secret")).result, Result::pending);
    EXPECT_EQ(users_.brake.failing(), 0U);
    EXPECT_EQ(decided(basic("slow", "secret")).user, "slow");
    EXPECT_EQ(users_.brake.failing(), 0U);
}

TEST_F(ConnectionLoginTest, UnknownUsersAreCheckedAsLongAsOthers)
{
    for (const char* const user : {"slow", "plain", "certified", "nobody"})
    {
        ConnectionLogin login(users_);
        const std::string header = basic(user, "wrong");
        EXPECT_EQ(login.attempt({"GET", "/page", header, peer_, 9, true, ""}, false).result, Result::pending)
            << user;
    }
}

TEST_F(ConnectionLoginTest, AnAttemptThatIsCheckedPassesTheBrakeOnce)
{
    EXPECT_EQ(decided(basic("slow", "wrong")).result, Result::challenge);
    failing_ = users_.brake.failing();
    EXPECT_EQ(failing_, 2U);
    const Outcome held = attempt(basic("slow", "wrong2"));
    ASSERT_EQ(held.result, Result::delayed);
    EXPECT_GT(held.span, Duration::zero());
    time_.advance(held.span);
    EXPECT_EQ(decided(basic("slow", "wrong2")).result, Result::challenge);
}

TEST_F(ConnectionLoginTest, TooManyFailuresAreRefusedBeforeAHashIsComputed)
{
    for (int i = 0; i < 10; ++i)
    {
        const Outcome out = decided(basic("slow", std::to_string(i)));
        if (out.result == Result::delayed)
        {
            time_.advance(out.span);
        }
        failing_ = users_.brake.failing();
        if (out.result == Result::refused)
        {
            EXPECT_GT(out.span, Duration::zero());
            return;
        }
    }
    FAIL() << "never refused";
}

TEST_F(ConnectionLoginTest, TheLastTryIsDecidedAndIsNoFailure)
{
    EXPECT_EQ(attempt(basic("slow", "secret"), "", true).result, Result::busy);
    EXPECT_EQ(users_.brake.failing(), 0U);
}

TEST_F(ConnectionLoginTest, ACertificateNamesAUserWithoutCredentials)
{
    EXPECT_EQ(attempt("", "certified").user, "certified");
    EXPECT_EQ(login_.user(), "certified");
    EXPECT_EQ(attempt("", "nobody").result, Result::challenge);
    EXPECT_EQ(attempt("", "anonymous").result, Result::challenge);
    EXPECT_EQ(decided(basic("plain", "secret")).user, "plain");
}

TEST_F(ConnectionLoginTest, WhereCertificatesAreNoUsersTheyNameNobody)
{
    ServerConfig without = config();
    without.tls.certificateUsers = false;
    UserAccess users(without, time_);
    ConnectionLogin login(users);
    EXPECT_EQ(login.attempt({"GET", "/page", "", peer_, 7, true, "certified"}, false).result,
              Result::challenge);
}

}  // namespace
}  // namespace refhost
