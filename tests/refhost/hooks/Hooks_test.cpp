#include "refhost/hooks/Hooks.h"

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "tests/CapturedErrors.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

ServerEvent stateEvent(const std::string& state, const std::string& before)
{
    return {"camera-state", WallTime{}, {{"camera", std::int64_t{2}}, {"state", state}, {"before", before}}};
}

std::string hookOf(const ServerEvent& event)
{
    const HookTarget* const hook = Hooks::hookOf(event);
    return hook == nullptr ? std::string() : std::string(hook->hook);
}

class HooksTest : public testing::Test
{
protected:
    std::string file() const
    {
        return folder.path() + "/got";
    }

    std::vector<std::string> lines() const
    {
        std::vector<std::string> all;
        std::ifstream input(file());
        for (std::string line; std::getline(input, line);)
        {
            all.push_back(line);
        }
        return all;
    }

    TemporaryFolder folder;
    ServerEvents events;
    HooksConfig config;
};

TEST(HookOfEvent, ChangesOfStateHaveTheirHooks)
{
    EXPECT_EQ(hookOf(stateEvent("running", "starting")), "on-camera-up");
    EXPECT_EQ(hookOf(stateEvent("running", "frozen")), "on-camera-up");
    EXPECT_EQ(hookOf(stateEvent("frozen", "running")), "on-camera-frozen");
    EXPECT_EQ(hookOf(stateEvent("unreachable", "running")), "on-camera-down");
    EXPECT_EQ(hookOf(stateEvent("refused", "starting")), "on-camera-down");
    EXPECT_EQ(hookOf(stateEvent("refused", "unreachable")), "") << "it is down already";
    EXPECT_EQ(hookOf(stateEvent("idle", "running")), "");
    EXPECT_EQ(hookOf({"talk-back-ended", WallTime{}, {}}), "on-talk-end");
    EXPECT_EQ(hookOf({"authentication-failed", WallTime{}, {}}), "");
}

TEST_F(HooksTest, CommandGetsTheEventAsOneLineOfJson)
{
    config.cameraUp = "cat >> '" + file() + "'";
    {
        const auto launcher = HookLauncher::start(config);
        const Hooks hooks(config, launcher.get(), events);
        events.publish(stateEvent("running", "starting"));
        events.publish(stateEvent("idle", "running"));
    }
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_EQ(lines()[0],
              R"({"event":"camera-state","time":"1970-01-01T00:00:00.000Z","hook":"on-camera-up","camera":2,)"
              R"("state":"running","before":"starting"})");
}

TEST_F(HooksTest, NobodySubscribesWithoutHooks)
{
    const Hooks hooks(config, nullptr, events);
    EXPECT_FALSE(events.hasSubscribers());
}

TEST_F(HooksTest, PublisherNeverWaitsAndWhatTheQueueCannotHoldIsLeftOut)
{
    config.parallel = 1;
    config.cameraUp = "sleep 60";
    CapturedErrors errors;
    const auto start = std::chrono::steady_clock::now();
    {
        const auto launcher = HookLauncher::start(config);
        const Hooks hooks(config, launcher.get(), events);
        for (std::size_t i = 0; i < 2 * Hooks::maxQueued; ++i)
        {
            events.publish(stateEvent("running", "starting"));
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s) << "the end kills what hangs";
    EXPECT_EQ(errors.linesWith("on-camera-up is left out: too many hooks wait").size(), 1U);
}

TEST_F(HooksTest, SessionsByTheThousandKeepNoRecordingFromItsHook)
{
    const auto in = [this](const std::string& name) { return "'" + folder / name + "'"; };
    config.parallel = 1;
    config.sessionStart = "while [ ! -e " + in("go") + " ]; do sleep 0.01; done; echo x >> " + in("sessions");
    config.recordingSegment = "cat " + in("sessions") + " 2>/dev/null | wc -l > " + in("got");
    const auto launcher = HookLauncher::start(config);
    const Hooks hooks(config, launcher.get(), events);
    for (std::size_t i = 0; i < 4 * Hooks::maxQueued; ++i)
    {
        events.publish({"session-started", WallTime{}, {}});
    }
    events.publish({"recording-segment", WallTime{}, {}});
    std::ofstream(folder / "go") << "go";
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (lines().empty() && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::yield();
    }
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_LE(std::stoi(lines()[0]), 1) << "sessions' hooks that ran before";
}

TEST_F(HooksTest, FailuresAreLoggedAtALimitedRate)
{
    config.cameraDown = "echo broken; exit 1";
    CapturedErrors errors;
    {
        const auto launcher = HookLauncher::start(config);
        const Hooks hooks(config, launcher.get(), events);
        for (int i = 0; i < 20; ++i)
        {
            events.publish(stateEvent("failed", "running"));
        }
    }
    EXPECT_LE(errors.linesWith("on-camera-down failed: exit status 1: broken").size(), 2U);
}

}  // namespace
}  // namespace refhost
