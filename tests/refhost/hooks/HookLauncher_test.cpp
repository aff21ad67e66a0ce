#include "refhost/hooks/HookLauncher.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include "refhost/hooks/HookCommand.h"
#include "refhost/hooks/HookTargets.h"
#include "refhost/sandbox/FileLimits.h"
#include "refhost/sandbox/Sandbox.h"
#include "refhost/sandbox/SystemCallFilter.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/sandbox/InChild.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

constexpr std::size_t cameraUp = 0;
constexpr std::size_t cameraDown = 1;

bool awaited(const std::function<bool()>& condition)
{
    const auto deadline = HookStop::Clock::now() + 20s;
    while (!condition())
    {
        if (HookStop::Clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// Whether a process runs: one that nobody waited for yet has ended.
bool isRunning(int process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(status, text);
    return !text.empty() && text.find(") Z") == std::string::npos;
}

class HookLauncherTest : public testing::Test
{
protected:
    HookLauncherTest()
    {
        config.timeout = 20;
    }

    HookOutcome run(std::size_t hook, const std::string& input = "{}\n")
    {
        if (!launcher)
        {
            launcher = HookLauncher::start(config);
        }
        return launcher->run(hook, input, stop);
    }

    std::string read(const std::string& name) const
    {
        std::ostringstream text;
        text << std::ifstream(folder / name).rdbuf();
        return text.str();
    }

    /// The number that a command has written; 0: none yet.
    int number(const std::string& name) const
    {
        const std::string text = read(name);
        return text.empty() || text.back() != '\n' ? 0 : std::stoi(text);
    }

    /// A command that hangs and says in a file by which number.
    std::string hanging(const std::string& name) const
    {
        return "echo $$ > '" + folder / name + "'; exec sleep 100";
    }

    TemporaryFolder folder;
    HooksConfig config;
    HookStop stop;
    std::unique_ptr<HookLauncher> launcher;
};

TEST_F(HookLauncherTest, StartsOnlyForCommands)
{
    EXPECT_EQ(HookLauncher::start(config), nullptr);
    config.cameraUp = "https://example.invalid/";
    EXPECT_EQ(HookLauncher::start(config), nullptr);
    config.cameraDown = "true";
    EXPECT_NE(HookLauncher::start(config), nullptr);
}

TEST_F(HookLauncherTest, CommandHasItsInputAndItsOutcomeComesBack)
{
    config.cameraUp = "cat > '" + folder / "got" + "'";
    config.cameraDown = "echo 'no such bucket'; exit 3";
    const std::string input(HookLauncher::maxInput, 'x');
    const HookOutcome up = run(cameraUp, input);
    EXPECT_TRUE(up.done) << up.text;
    EXPECT_EQ(read("got"), input);
    const HookOutcome down = run(cameraDown);
    EXPECT_FALSE(down.done);
    EXPECT_EQ(down.text, "exit status 3: no such bucket");
}

TEST_F(HookLauncherTest, LongerInputIsRefused)
{
    config.cameraUp = "true";
    EXPECT_EQ(run(cameraUp, std::string(HookLauncher::maxInput + 1, 'x')).text, "the event is too long");
    EXPECT_TRUE(run(cameraUp).done);
}

TEST_F(HookLauncherTest, RunsNothingThatIsNotConfigured)
{
    config.cameraUp = "true";
    EXPECT_FALSE(run(cameraDown).done);
    EXPECT_FALSE(run(hookTargets.size()).done);
    EXPECT_FALSE(run(255).done);
    EXPECT_TRUE(run(cameraUp).done);
}

TEST_F(HookLauncherTest, CommandThatHangsIsKilled)
{
    config.timeout = 1;
    config.cameraUp = hanging("process");
    EXPECT_EQ(run(cameraUp).text, "it did not end in time, and was killed");
    EXPECT_TRUE(awaited([this] { return !isRunning(number("process")); }));
}

TEST_F(HookLauncherTest, StopKillsWhatRuns)
{
    config.cameraUp = hanging("process");
    launcher = HookLauncher::start(config);
    auto outcome = std::async(std::launch::async, [this] { return run(cameraUp); });
    ASSERT_TRUE(awaited([this] { return number("process") != 0; }));
    stop.stop();
    EXPECT_EQ(outcome.get().text, "it was killed, because the server ends");
    EXPECT_TRUE(awaited([this] { return !isRunning(number("process")); }));
}

TEST_F(HookLauncherTest, NoMoreThanTheBoundRunAtOnce)
{
    config.cameraUp = "echo x >> '" + folder / "started" + "'; exec sleep 100";
    config.cameraDown = "true";
    launcher = HookLauncher::start(config);
    std::vector<std::future<HookOutcome>> running;
    for (std::size_t i = 0; i < HookLauncher::maxRunning; ++i)
    {
        running.push_back(std::async(std::launch::async, [this] { return run(cameraUp); }));
    }
    ASSERT_TRUE(awaited([this] { return read("started").size() == 2 * HookLauncher::maxRunning; }));
    EXPECT_EQ(run(cameraDown).text, "too many commands run");
    stop.stop();
    for (auto& each : running)
    {
        EXPECT_EQ(each.get().text, "it was killed, because the server ends");
    }
    const HookStop again;
    EXPECT_TRUE(awaited([this, &again] { return launcher->run(cameraDown, "", again).done; }));
}

TEST_F(HookLauncherTest, EndsWithTheServerHoweverThatEnds)
{
    config.cameraUp = hanging("process");
    const pid_t server = ::fork();
    if (server == 0)
    {
        const auto own = HookLauncher::start(config);
        (void)own->run(cameraUp, "", stop);
        ::_exit(0);
    }
    ASSERT_TRUE(awaited([this] { return number("process") != 0; }));
    EXPECT_TRUE(isRunning(number("process")));
    ::kill(server, SIGKILL);
    ::waitpid(server, nullptr, 0);
    EXPECT_TRUE(awaited([this] { return !isRunning(number("process")); }));
}

TEST_F(HookLauncherTest, RunsCommandsForAServerThatMayStartNone)
{
    if (!Sandbox::unavailable().empty())
    {
        GTEST_SKIP() << Sandbox::unavailable();
    }
    config.cameraUp = "echo done > '" + folder / "got" + "'";
    const int result = inChild(
        [this]
        {
            const auto own = HookLauncher::start(config);
            std::string problem;
            (void)FileLimits().apply(problem);  // none can be read
            if (!SystemCallFilter::apply(problem))
            {
                return 1;
            }
            const auto deadline = HookStop::Clock::now() + 20s;
            if (HookCommand::run("true", "", deadline, stop.descriptor()).done)
            {
                return 2;
            }
            return own->run(cameraUp, "", stop).done ? 0 : 3;
        });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(read("got"), "done\n");
}

TEST_F(HookLauncherTest, CommandsGainNoPrivileges)
{
    config.cameraUp = "grep -q 'NoNewPrivs:\t1' /proc/self/status";
    const HookOutcome outcome = run(cameraUp);
    EXPECT_TRUE(outcome.done) << outcome.text;
}

}  // namespace
}  // namespace refhost
