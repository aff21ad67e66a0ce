#include "refhost/service/ServiceManager.h"

#include <gtest/gtest.h>

#include <regex>

#include "tests/CapturedErrors.h"
#include "tests/refhost/service/NotifySocket.h"

namespace refhost
{
namespace
{

TEST(ServiceManager, WithoutOneNothingIsReported)
{
    ::unsetenv("NOTIFY_SOCKET");
    ServiceManager manager = ServiceManager::fromEnvironment();
    EXPECT_FALSE(manager.present());
    manager.ready();
    manager.status("idle");
    manager.alive();
    manager.stopping();
}

TEST(ServiceManager, StatesArriveInOrder)
{
    NotifySocket socket;
    ServiceManager manager = ServiceManager::fromEnvironment();
    EXPECT_TRUE(manager.present());
    manager.ready();
    manager.reloading();
    manager.ready();
    manager.stopping();
    EXPECT_EQ("READY=1", socket.next());
    EXPECT_TRUE(std::regex_match(socket.next(), std::regex("RELOADING=1\nMONOTONIC_USEC=[1-9][0-9]*")));
    EXPECT_EQ("READY=1", socket.next());
    EXPECT_EQ("STOPPING=1", socket.next());
    EXPECT_EQ("", socket.next());
}

TEST(ServiceManager, AbstractSocketIsReachedToo)
{
    NotifySocket socket("@ov-service-manager-test-" + std::to_string(::getpid()));
    ServiceManager manager = ServiceManager::fromEnvironment();
    manager.ready();
    EXPECT_EQ("READY=1", socket.next());
}

TEST(ServiceManager, ProgramsThatItStartsDoNotSeeTheSocket)
{
    NotifySocket socket;
    ::setenv("WATCHDOG_USEC", "3000000", 1);
    ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
    const ServiceManager manager = ServiceManager::fromEnvironment();
    EXPECT_EQ(nullptr, std::getenv("NOTIFY_SOCKET"));
    EXPECT_EQ(nullptr, std::getenv("WATCHDOG_USEC"));
    EXPECT_EQ(nullptr, std::getenv("WATCHDOG_PID"));
}

TEST(ServiceManager, StatusIsSentWhenItDiffers)
{
    NotifySocket socket;
    ServiceManager manager = ServiceManager::fromEnvironment();
    manager.status("one viewer");
    manager.status("one viewer");
    manager.status("two viewers");
    EXPECT_EQ("STATUS=one viewer", socket.next());
    EXPECT_EQ("STATUS=two viewers", socket.next());
    EXPECT_EQ("", socket.next());
}

TEST(ServiceManager, StatusCannotForgeAState)
{
    NotifySocket socket;
    ServiceManager manager = ServiceManager::fromEnvironment();
    manager.status("yard\nSTOPPING=1");
    EXPECT_EQ("STATUS=yard\\x0aSTOPPING=1", socket.next());
}

TEST(ServiceManager, ManagerThatDoesNotReadIsNotWaitedForAndGetsTheStatesLater)
{
    NotifySocket socket;
    ServiceManager manager = ServiceManager::fromEnvironment();
    for (int i = 0; i < 10000; ++i)
    {
        manager.alive();
    }
    manager.ready();
    int reports = 0;
    while (socket.next() == "WATCHDOG=1")
    {
        ++reports;
    }
    EXPECT_LT(reports, 10000);
    manager.alive();
    EXPECT_EQ("READY=1", socket.next());
    EXPECT_EQ("WATCHDOG=1", socket.next());
}

TEST(ServiceManager, StatesThatCannotBeSentAreAFew)
{
    NotifySocket socket;
    ServiceManager manager = ServiceManager::fromEnvironment();
    for (int i = 0; i < 10000; ++i)
    {
        manager.alive();
    }
    for (int i = 0; i < 100; ++i)
    {
        manager.reloading();
        manager.ready();
    }
    while (socket.next() == "WATCHDOG=1")
    {
    }
    manager.alive();
    int states = 0;
    std::string last;
    for (std::string report = socket.next(); report != "WATCHDOG=1"; report = socket.next())
    {
        last = report;
        ++states;
    }
    EXPECT_EQ("READY=1", last);
    EXPECT_LE(states, 8);
}

TEST(ServiceManager, WatchdogIsTheOneOfThisProcess)
{
    const auto timeOf = [](const char* microseconds, const std::string& process)
    {
        NotifySocket socket;
        ::setenv("WATCHDOG_USEC", microseconds, 1);
        if (!process.empty())
        {
            ::setenv("WATCHDOG_PID", process.c_str(), 1);
        }
        return ServiceManager::fromEnvironment().watchdogTime();
    };
    const std::string own = std::to_string(::getpid());
    EXPECT_EQ(std::chrono::seconds(30), timeOf("30000000", own));
    EXPECT_EQ(std::chrono::seconds(30), timeOf("30000000", ""));
    EXPECT_EQ(std::nullopt, timeOf("30000000", "1"));
    EXPECT_EQ(std::nullopt, timeOf("30000000", "own"));
    EXPECT_EQ(std::nullopt, timeOf("0", own));
    EXPECT_EQ(std::nullopt, timeOf("-5", own));
    EXPECT_EQ(std::nullopt, timeOf("30s", own));
}

TEST(ServiceManager, SocketThatIsNoneIsLogged)
{
    for (const std::string& name : {std::string("notify"), "/" + std::string(200, 'x'), std::string("@")})
    {
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
        CapturedErrors errors;
        EXPECT_FALSE(ServiceManager::fromEnvironment().present());
        EXPECT_EQ(1u, errors.linesWith("NOTIFY_SOCKET names no socket").size()) << name;
    }
}

TEST(ServiceManager, ManagerThatIsGoneIsLoggedOnce)
{
    ServiceManager manager;
    {
        NotifySocket socket;
        manager = ServiceManager::fromEnvironment();
    }
    CapturedErrors errors;
    for (int i = 0; i < 100; ++i)
    {
        manager.alive();
    }
    EXPECT_EQ(1u, errors.linesWith("takes no report").size());
}

}  // namespace
}  // namespace refhost
