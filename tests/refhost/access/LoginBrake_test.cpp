#include "refhost/access/LoginBrake.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/refhost/rtsp/connection/SteppedClock.h"

namespace refhost
{
namespace
{

using Admission = LoginBrake::Admission;
using Kind = LoginBrake::Admission::Kind;
using std::chrono::seconds;

SocketAddress::Key at(const std::string& address)
{
    return SocketAddress::parse(address)->key();
}

SocketAddress::Key number(unsigned n)
{
    return at("10." + std::to_string(n >> 16U) + "." + std::to_string(n >> 8U & 255U) + "." +
              std::to_string(n & 255U));
}

class LoginBrakeTest : public testing::Test
{
protected:
    static AuthConfig config()
    {
        AuthConfig values;
        values.freeFailures = 3;
        values.maxDelay = 8;
        values.refuseAfter = 6;
        values.refuseAddressAfter = 20;
        values.refusalTime = 300;
        values.failureMemory = 60;
        return values;
    }

    Admission admit(const SocketAddress::Key& address, std::string_view user = "admin")
    {
        return brake_.admit(address, user, false);
    }

    void fail(const SocketAddress::Key& address, int times, std::string_view user = "admin")
    {
        for (int i = 0; i < times; ++i)
        {
            brake_.failed(address, user);
        }
    }

    /// The time that the next attempt waits in whole seconds; -1 when it is refused.
    static long seconds_(const Admission& admission)
    {
        return admission.kind == Kind::refuse
                   ? -1
                   : static_cast<long>(std::chrono::round<seconds>(admission.span).count());
    }

    SteppedClock time_;
    LoginBrake brake_{config(), time_};
    const SocketAddress::Key here_ = at("192.0.2.1");
    const SocketAddress::Key there_ = at("192.0.2.2");
};

TEST_F(LoginBrakeTest, AttemptsWaitLongerAndLongerAndAreThenRefused)
{
    std::vector<long> waits;
    for (int i = 0; i < 7; ++i)
    {
        const Admission admission = admit(here_);
        waits.push_back(seconds_(admission));
        time_.advance(std::chrono::ceil<std::chrono::milliseconds>(admission.span));
        brake_.failed(here_, "admin");
    }
    EXPECT_EQ(waits, (std::vector<long>{0, 0, 0, 1, 2, 4, -1}));
}

TEST_F(LoginBrakeTest, ARefusalEndsAfterItsTimeAndTheNextFailureLeadsToAnother)
{
    fail(here_, 6);
    EXPECT_EQ(admit(here_).kind, Kind::refuse);
    EXPECT_EQ(std::chrono::round<seconds>(admit(here_).span), seconds(300));
    time_.advance(seconds(299));
    EXPECT_EQ(admit(here_).kind, Kind::refuse);
    time_.advance(seconds(2));
    EXPECT_NE(admit(here_).kind, Kind::refuse);
    fail(here_, 1);
    EXPECT_EQ(admit(here_).kind, Kind::refuse);
    time_.advance(seconds(300 + 4 * 60));
    fail(here_, 1);
    EXPECT_NE(admit(here_).kind, Kind::refuse) << "four were forgotten";
}

TEST_F(LoginBrakeTest, FailuresAreForgottenOneByOne)
{
    fail(here_, 4);
    time_.advance(seconds(10));
    EXPECT_EQ(seconds_(admit(here_)), 0);
    EXPECT_EQ(seconds_(admit(here_)), 2);
    time_.advance(seconds(120));
    EXPECT_EQ(seconds_(admit(here_)), 0);
    EXPECT_EQ(seconds_(admit(here_)), 0) << "fewer than the free ones are left";
}

TEST_F(LoginBrakeTest, TheRightPasswordForgetsTheUsersFailuresThere)
{
    fail(here_, 5);
    EXPECT_GT(seconds_(admit(here_)), 0);
    brake_.succeeded(here_, "admin");
    EXPECT_EQ(seconds_(admit(here_)), 0);
}

TEST_F(LoginBrakeTest, NobodyLocksAUserOutFromAnotherAddress)
{
    for (unsigned n = 0; n < 500; ++n)
    {
        fail(number(n), 7);
    }
    const Admission stranger = admit(there_);
    EXPECT_EQ(stranger.kind, Kind::wait);
    EXPECT_EQ(std::chrono::round<seconds>(stranger.span), LoginBrake::userDelay);
    brake_.succeeded(there_, "admin");
    EXPECT_EQ(seconds_(admit(there_)), 0) << "nothing where he logged in";
}

TEST_F(LoginBrakeTest, AnAddressThatTriesManyUsersIsRefused)
{
    for (int i = 0; i < 20; ++i)
    {
        fail(here_, 1, "user" + std::to_string(i));
    }
    EXPECT_EQ(admit(here_, "another").kind, Kind::refuse);
    EXPECT_EQ(admit(there_, "another").kind, Kind::proceed);
}

TEST_F(LoginBrakeTest, WhoLoggedInIsNotHeldUpByOthersAtHisAddress)
{
    brake_.succeeded(here_, "viewer");
    for (int i = 0; i < 20; ++i)
    {
        fail(here_, 1, "user" + std::to_string(i));
    }
    EXPECT_EQ(admit(here_, "viewer").kind, Kind::proceed);
    EXPECT_EQ(brake_.admit(here_, "guest", true).kind, Kind::proceed) << "on his own connection";
    EXPECT_EQ(admit(here_, "guest").kind, Kind::refuse);
}

TEST_F(LoginBrakeTest, AnAccountOfOnesOwnDoesNotForgetTheAddresssFailures)
{
    for (int i = 0; i < 20; ++i)
    {
        fail(here_, 1, "user" + std::to_string(i));
        brake_.succeeded(here_, "mine");
    }
    EXPECT_EQ(admit(here_, "another").kind, Kind::refuse);
}

TEST_F(LoginBrakeTest, OneClientWithAWrongPasswordDoesNotGetItsAddressRefused)
{
    for (int minute = 0; minute < 600; ++minute)
    {
        for (int i = 0; i < 6; ++i)
        {
            const Admission admission = admit(here_, "recorder");
            time_.advance(seconds(10));
            if (admission.kind != Kind::refuse)
            {
                brake_.failed(here_, "recorder");
            }
        }
        ASSERT_NE(admit(here_, "viewer").kind, Kind::refuse) << minute;
    }
}

TEST_F(LoginBrakeTest, AttemptsSideBySideWaitBehindEachOther)
{
    fail(here_, 3);
    time_.advance(seconds(1));
    std::vector<long> waits;
    std::vector<Admission> held;
    for (int i = 0; i < 11; ++i)
    {
        held.push_back(admit(here_));
        waits.push_back(seconds_(held.back()));
    }
    EXPECT_EQ(waits, (std::vector<long>{0, 1, 2, 3, 4, 5, 6, 7, 8, -1, -1}));
}

TEST_F(LoginBrakeTest, AnIpv6NetworkIsOneAddress)
{
    fail(at("2001:db8::1"), 6);
    EXPECT_EQ(admit(at("2001:db8::2")).kind, Kind::refuse);
    EXPECT_NE(admit(at("2001:db8:0:1::2")).kind, Kind::refuse);
}

TEST_F(LoginBrakeTest, LoopbackIsExemptWhereTheConfigurationSaysSo)
{
    AuthConfig strict = config();
    strict.exemptLoopback = false;
    LoginBrake brake(strict, time_);
    for (const char* const address : {"127.0.0.1", "127.9.9.9", "::1"})
    {
        fail(at(address), 50);
        EXPECT_EQ(admit(at(address)).kind, Kind::proceed) << address;
        for (int i = 0; i < 6; ++i)
        {
            brake.failed(at(address), "admin");
        }
        EXPECT_EQ(brake.admit(at(address), "admin", false).kind, Kind::refuse) << address;
    }
    EXPECT_EQ(brake_.failing(), 0u);
    fail(at("128.0.0.1"), 6);
    EXPECT_EQ(admit(at("128.0.0.1")).kind, Kind::refuse);
}

TEST_F(LoginBrakeTest, ZeroRefusesNobody)
{
    AuthConfig mild = config();
    mild.refuseAfter = 0;
    mild.refuseAddressAfter = 0;
    LoginBrake brake(mild, time_);
    for (int i = 0; i < 200; ++i)
    {
        brake.failed(here_, "admin");
    }
    EXPECT_EQ(brake.admit(here_, "admin", false).kind, Kind::wait);
}

TEST_F(LoginBrakeTest, WaitsAreBoundedAndFurtherOnesRefused)
{
    std::vector<Admission> held;
    unsigned n = 0;
    for (; brake_.waiting() < LoginBrake::maxWaiting; ++n)
    {
        ASSERT_LT(n, 10000u);
        fail(number(n), 3, "user" + std::to_string(n));
        held.push_back(admit(number(n), "user" + std::to_string(n)));
    }
    fail(number(n), 3);
    EXPECT_EQ(admit(number(n)).kind, Kind::refuse);
    EXPECT_EQ(admit(there_, "other").kind, Kind::proceed);
    held.clear();
    EXPECT_EQ(brake_.waiting(), 0u);
    EXPECT_EQ(admit(number(n)).kind, Kind::wait);
}

TEST_F(LoginBrakeTest, TheDelayOfAUserNeverRefusesThoughTooManyWait)
{
    std::vector<Admission> held;
    for (unsigned n = 0; brake_.waiting() < LoginBrake::maxWaiting; ++n)
    {
        ASSERT_LT(n, 10000u);
        fail(number(n), 3, "admin");
        held.push_back(admit(number(n), "admin"));
    }
    EXPECT_EQ(admit(there_, "admin").kind, Kind::proceed);
}

TEST_F(LoginBrakeTest, WhatItRemembersIsBoundedAndTheOldestGoes)
{
    fail(here_, 6);
    for (unsigned n = 0; n < LoginBrake::maxFailing - 1; ++n)
    {
        fail(number(n), 1);
        brake_.succeeded(number(n), "other");
    }
    EXPECT_EQ(brake_.failing(), 2 * LoginBrake::maxFailing);
    EXPECT_EQ(brake_.known(), LoginBrake::maxKnown);
    EXPECT_EQ(admit(here_).kind, Kind::refuse);
    fail(number(LoginBrake::maxFailing), 1);
    EXPECT_EQ(brake_.failing(), 2 * LoginBrake::maxFailing);
    EXPECT_NE(admit(here_).kind, Kind::refuse);
}

}  // namespace
}  // namespace refhost
