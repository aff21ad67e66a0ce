#include "refhost/hooks/HookCommand.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "refhost/threads/AllSignalsBlocked.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using testing::StartsWith;

class HookCommandTest : public testing::Test
{
protected:
    HookCommandTest()
    {
        std::signal(SIGPIPE, SIG_IGN);  // as the server
    }

    HookOutcome run(const std::string& command, const std::string& input = "{}\n",
                    std::chrono::milliseconds time = 20s)
    {
        return HookCommand::run(command, input, HookStop::Clock::now() + time, stop.descriptor());
    }

    std::string read(const std::string& name) const
    {
        std::ostringstream text;
        text << std::ifstream(folder.path() + "/" + name).rdbuf();
        return text.str();
    }

    std::string in(const std::string& name) const
    {
        return "'" + folder.path() + "/" + name + "'";
    }

    TemporaryFolder folder;
    HookStop stop;
    AllSignalsBlocked blocked;  // as on the hooks' threads
};

TEST_F(HookCommandTest, GetsItsInputAndSucceedsByItsExitStatus)
{
    const std::string input(300000, 'x');  // more than a pipe holds
    EXPECT_TRUE(run("cat > " + in("got"), input).done);
    EXPECT_EQ(read("got"), input);
}

TEST_F(HookCommandTest, FailureHasItsStatusAndTheFirstLineOfItsOutput)
{
    const HookOutcome outcome = run("echo 'no such bucket' >&2; echo more; exit 3");
    EXPECT_FALSE(outcome.done);
    EXPECT_EQ(outcome.text, "exit status 3: no such bucket");
}

TEST_F(HookCommandTest, CommandThatIsNotFoundFails)
{
    EXPECT_THAT(run("/nonexistent/command").text, StartsWith("exit status 127: "));
}

TEST_F(HookCommandTest, CommandThatNeverReadsItsInputEnds)
{
    EXPECT_TRUE(run("exit 0", std::string(1000000, 'x')).done);
}

TEST_F(HookCommandTest, CommandThatHangsIsKilledWithAllThatItStarted)
{
    const auto start = HookStop::Clock::now();
    const HookOutcome outcome =
        run("trap '' TERM; sleep 60 & echo $! > " + in("child") + "; wait", "{}", 300ms);
    EXPECT_EQ(outcome.text, "it did not end in time, and was killed");
    EXPECT_LT(HookStop::Clock::now() - start, 10s);
    const int child = std::stoi(read("child"));
    // It is reaped by whoever adopted it.
    const auto deadline = HookStop::Clock::now() + 10s;
    const auto alive = [child]
    {
        std::ifstream status("/proc/" + std::to_string(child) + "/stat");
        std::string text;
        std::getline(status, text);
        return !text.empty() && text.find(") Z") == std::string::npos;
    };
    while (alive() && HookStop::Clock::now() < deadline)
    {
        std::this_thread::yield();
    }
    EXPECT_FALSE(alive());
}

TEST_F(HookCommandTest, WhatACommandLeavesInTheBackgroundDoesNotDelayItsEnd)
{
    const auto start = HookStop::Clock::now();
    EXPECT_TRUE(run("sleep 60 & exit 0").done);
    EXPECT_LT(HookStop::Clock::now() - start, 10s);
}

TEST_F(HookCommandTest, CommandThatFloodsIsKilled)
{
    EXPECT_THAT(
        run("while :; do echo yyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy; done").text,
        StartsWith("it printed too much, and was killed: yyy"));
}

TEST_F(HookCommandTest, StopEndsAtOnce)
{
    stop.stop();
    EXPECT_EQ(run("sleep 60").text, "it was killed, because the server ends");
}

TEST_F(HookCommandTest, HasNoDescriptorAndNoBlockedSignalOfTheServer)
{
    const Descriptor kept(::dup(STDERR_FILENO));  // without close-on-exec
    ASSERT_TRUE(kept);
    // The shell reads its own status: while it starts a program, it blocks signals for a moment.
    EXPECT_TRUE(run("ls /proc/$$/fd > " + in("descriptors") +
                    "; while read -r name value; do case $name in "
                    "SigBlk:) echo $value > " +
                    in("mask") + ";; SigIgn:) echo $value > " + in("ignored") +
                    ";; esac; done < /proc/$$/status")
                    .done);
    std::istringstream descriptors(read("descriptors"));
    for (int number = 0; descriptors >> number;)
    {
        EXPECT_TRUE(number <= STDERR_FILENO || number == 10) << number;  // 10: the shell's own
    }
    EXPECT_EQ(read("mask"), "0000000000000000\n");
    // Beyond signal 31 the C library ignores two of its own.
    const std::string ignored = read("ignored");
    EXPECT_EQ(std::stoull(ignored, nullptr, 16) & 0x7fffffffU, 0U) << ignored;
}

TEST_F(HookCommandTest, HasNothingThatTheServiceManagerPassedToTheServer)
{
    ::setenv("NOTIFY_SOCKET", "/run/test", 1);
    EXPECT_TRUE(run("test -z \"$NOTIFY_SOCKET\"").done);
    ::unsetenv("NOTIFY_SOCKET");
}

}  // namespace
}  // namespace refhost
