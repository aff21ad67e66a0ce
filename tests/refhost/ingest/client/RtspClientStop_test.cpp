#include <gmock/gmock.h>

#include "tests/refhost/ingest/client/ScriptedCamera.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using test::ClientWorld;
using test::ScriptedCamera;
using State = RtspClientState;

/// Brings a client into a state.
std::unique_ptr<ScriptedCamera> enter(ClientWorld& world, State state)
{
    if (state == State::idle)
    {
        runOn(world.loop,
              [&]
              {
                  world.client = std::make_unique<RtspClient>(world.loop, world.connector, ClientWorld::url,
                                                              world.options, world.events);
              });
        return nullptr;
    }
    if (state == State::connecting)
    {
        world.connector.stall();
        world.start();
        return nullptr;
    }
    auto camera = world.startAndAccept();
    auto request = camera->expect("OPTIONS");
    for (const State reached : {State::asking, State::describing, State::settingUp, State::starting})
    {
        if (reached == state)
        {
            return camera;
        }
        camera->answer(request, "200 OK", reached == State::settingUp ? "Session: 1\r\n" : "",
                       reached == State::describing ? ClientWorld::oneTrack : "");
        if (reached != State::starting)
        {
            request = camera->request();
        }
    }
    EXPECT_TRUE(world.events.waitPlaying());
    return camera;
}

constexpr State states[] = {State::idle,      State::connecting, State::asking, State::describing,
                            State::settingUp, State::starting,   State::playing};

TEST(RtspClientStop, InEveryStateClosesTheConnectionAndReportsNothing)
{
    for (const State state : states)
    {
        SCOPED_TRACE(nameOf(state));
        ClientWorld world;
        const auto camera = enter(world, state);
        ASSERT_EQ(world.state(), state);
        std::size_t calls = 0;
        Signal closed;
        runOn(world.loop,
              [&]
              {
                  world.client->stop([&] { closed.set(); });
                  calls = world.events.calls();
              });
        if (state == State::starting || state == State::playing)
        {
            EXPECT_EQ(world.state(), State::tearingDown);
            camera->send(ScriptedCamera::packet(0, "too late"));
            EXPECT_EQ(camera->serve("TEARDOWN").header("Session"), "1");
        }
        EXPECT_TRUE(closed.wait());
        EXPECT_EQ(world.state(), State::closed);
        EXPECT_EQ(world.events.calls(), calls);
        EXPECT_TRUE(camera == nullptr || camera->waitClosed());
        EXPECT_TRUE(world.stopAndWait()) << "the second time";
    }
}

TEST(RtspClientStop, TheDestructorDoesAsStopDoes)
{
    for (const State state : states)
    {
        SCOPED_TRACE(nameOf(state));
        ClientWorld world;
        const auto camera = enter(world, state);
        runOn(world.loop, [&] { world.client = nullptr; });
        if (state == State::starting || state == State::playing)
        {
            camera->serve("TEARDOWN");
        }
        EXPECT_TRUE(camera == nullptr || camera->waitClosed());
    }
}

TEST(RtspClientStop, TeardownIsNotWaitedForBeyondItsDeadline)
{
    ClientWorld world;
    world.options.teardownTimeout = 50ms;
    const auto camera = enter(world, State::playing);
    EXPECT_TRUE(world.stopAndWait());
    EXPECT_TRUE(camera->waitClosed());
}

TEST(RtspClientStop, ACameraThatTakesNothingDoesNotHoldItUp)
{
    ClientWorld world;
    world.options.teardownTimeout = 50ms;
    const auto camera = enter(world, State::playing);
    camera->stream().stall(true);
    EXPECT_TRUE(world.stopAndWait());
}

TEST(RtspClientStop, ACameraThatClosesDuringTeardownDoesNotHoldItUp)
{
    ClientWorld world;
    world.options.teardownTimeout = 1h;
    const auto camera = enter(world, State::playing);
    Signal closed;
    runOn(world.loop, [&] { world.client->stop([&] { closed.set(); }); });
    camera->expect("TEARDOWN");
    camera->stream().endWriting();
    EXPECT_TRUE(closed.wait());
}

TEST(RtspClientStop, TheLoopMayEndWhileItTearsDown)
{
    for (const State state : {State::connecting, State::describing, State::playing})
    {
        auto world = std::make_unique<ClientWorld>();
        world->options.teardownTimeout = 1h;
        const auto camera = enter(*world, state);
        world = nullptr;
        EXPECT_TRUE(camera == nullptr || camera->waitClosed());
    }
}

TEST(RtspClientStop, MayHappenWithinEveryReport)
{
    for (const bool destroy : {false, true})
    {
        for (const char* within : {"described", "playing", "packet", "report", "ended"})
        {
            SCOPED_TRACE(within);
            ClientWorld world;
            Signal stopped;
            std::size_t calls = 0;
            world.events.within = [&](const std::string& event)
            {
                if (event == within)
                {
                    if (destroy)
                    {
                        world.client = nullptr;
                    }
                    else
                    {
                        world.client->stop();
                    }
                    calls = world.events.calls();
                    stopped.set();
                }
            };
            const auto camera = world.startAndAccept();
            // At once, so that much is left to read when it stops.
            camera->send("RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\nRTSP/1.0 200 OK\r\nCSeq: 2\r\nContent-Length: " +
                         std::to_string(std::string(ClientWorld::oneTrack).size()) + "\r\n\r\n" +
                         ClientWorld::oneTrack + "RTSP/1.0 200 OK\r\nCSeq: 3\r\nSession: 1\r\n\r\n" +
                         "RTSP/1.0 200 OK\r\nCSeq: 4\r\n\r\n" + ScriptedCamera::packet(0, "one") +
                         ScriptedCamera::packet(1, "two") + ScriptedCamera::packet(0, "three"));
            camera->stream().endWriting();
            ASSERT_TRUE(stopped.wait());
            runOn(world.loop, [] {});
            EXPECT_TRUE(camera->waitClosed());
            EXPECT_EQ(world.events.calls(), calls);
        }
    }
}

}  // namespace
}  // namespace refhost
