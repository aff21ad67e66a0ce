#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "refhost/rtsp/session/SessionTable.h"
#include "tests/refhost/base/Instants.h"
#include "tests/refhost/rtsp/session/FakeControllers.h"

namespace refhost
{
namespace test
{
namespace
{

/// How many methods run in all controllers.
struct Crowd
{
    void visit()
    {
        max = std::max(max.load(), ++inside);
        for (int i = 0; i < 20; ++i)
        {
            std::this_thread::yield();
        }
        --inside;
    }

    std::atomic<int> inside{0};
    std::atomic<int> max{0};
};

class VisitingController : public FakeController
{
public:
    VisitingController(const std::shared_ptr<ControllerScript>& script, Crowd& crowd)
        : FakeController(script), crowd_(crowd)
    {
    }

    int setup(const std::string&, const std::string&, const SafePointer<IConnection>&) override
    {
        crowd_.visit();
        return 0;
    }

    int play(const std::string&, const std::string&) override
    {
        crowd_.visit();
        return 0;
    }

    int pause(const std::string&, const std::string&) override
    {
        crowd_.visit();
        return 0;
    }

    int stop(const std::string&, const std::string&) override
    {
        crowd_.visit();
        return 0;
    }

private:
    Crowd& crowd_;
};

class SharedSessionsTest : public testing::Test
{
protected:
    ~SharedSessionsTest() noexcept override = default;

    std::shared_ptr<RtspSession> make()
    {
        return table.create("orv/multicast/1/0",
                            SafePointer<IRTSPController>(
                                SafePointer<VisitingController>(new VisitingController(script, crowd))),
                            route, SocketAddress::Key{1}, atMs(0));
    }

    static std::shared_ptr<Wire> sharedWire()
    {
        auto wire = std::make_shared<Wire>();
        wire->traits.shared = true;
        return wire;
    }

    static RtspStatus setup(RtspSession& session, const SafePointer<FakeTransport>& transport,
                            const char* track = "trackID=0")
    {
        std::uint32_t ssrc = 0;
        return session.setup(
            track,
            [&](RtspSession::Delivery& out)
            {
                out.transport.emplace(transport);
                return rtspOk;
            },
            ssrc);
    }

    static RtspStatus play(RtspSession& session)
    {
        bool notReady = false;
        return session.play(
            "", PlayRequest(), {}, [](const auto&) {}, notReady);
    }

    LimitsConfig limits;
    MediaRoutes::Route route;
    SessionTable table{limits};
    std::shared_ptr<ControllerScript> script = std::make_shared<ControllerScript>();
    Crowd crowd;
    std::shared_ptr<Wire> wire = sharedWire();
    SafePointer<FakeTransport> shared{new FakeTransport(wire)};
};

TEST_F(SharedSessionsTest, MethodsOfAllSessionsOfTheRouteFollowOneAnother)
{
    route.together = std::make_shared<SmallMutex>();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [this]
            {
                for (int turn = 0; turn < 50; ++turn)
                {
                    const auto session = make();
                    EXPECT_EQ(rtspOk, setup(*session, SafePointer<FakeTransport>(shared)));
                    EXPECT_EQ(rtspOk, play(*session));
                    EXPECT_EQ(rtspOk, session->pause(""));
                    table.end(session);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(1, crowd.max.load());
}

TEST_F(SharedSessionsTest, TheSharedTransportIsNeitherHeldNorClosed)
{
    route.together = std::make_shared<SmallMutex>();
    const auto session = make();
    ASSERT_EQ(rtspOk, setup(*session, shared));
    bool notReady = false;
    SendStatus during = SendStatus::closed;
    EXPECT_EQ(rtspOk, session->play(
                          "", PlayRequest(), {}, [&](const auto&) { during = shared->state(); }, notReady));
    EXPECT_EQ(SendStatus::sent, during);
    table.end(session);
    EXPECT_EQ(SendStatus::sent, shared->state());
}

TEST_F(SharedSessionsTest, AFailedSetupOfAFurtherTrackLeavesTheMembership)
{
    route.together = std::make_shared<SmallMutex>();
    const auto session =
        table.create("orv/multicast/1/0",
                     SafePointer<IRTSPController>(SafePointer<FakeController>(new FakeController(script))),
                     route, SocketAddress::Key{1}, atMs(0));
    script->results["setup trackID=1 1"] = -8;
    ASSERT_EQ(rtspOk, setup(*session, shared));
    EXPECT_EQ(rtspNotFound, setup(*session, shared, "trackID=1"));
    EXPECT_EQ(0, script->countOf("stop")) << "stop() of one track would end the membership in all";
    EXPECT_EQ(1U, session->trackCount());
    table.end(session);
    EXPECT_EQ(1, script->countOf("stop"));
}

TEST_F(SharedSessionsTest, AFailedSetupOfTheFirstTrackIsTakenBack)
{
    route.together = std::make_shared<SmallMutex>();
    const auto session =
        table.create("orv/multicast/1/0",
                     SafePointer<IRTSPController>(SafePointer<FakeController>(new FakeController(script))),
                     route, SocketAddress::Key{1}, atMs(0));
    script->results["setup"] = -8;
    EXPECT_EQ(rtspNotFound, setup(*session, shared));
    EXPECT_EQ(1, script->countOf("stop trackID=0"));
    table.end(session);
}

TEST_F(SharedSessionsTest, SharedStreamIsTheControllers)
{
    EXPECT_EQ(nullptr, make()->shared()) << "a route of its own";
    route.together = std::make_shared<SmallMutex>();
    const auto session = make();
    ASSERT_NE(nullptr, session->shared());
    EXPECT_EQ(0, session->shared()->numberOf(""));
    EXPECT_EQ(1, session->shared()->numberOf("trackID=1"));
    EXPECT_EQ(-1, session->shared()->numberOf("trackID=7"));
}

}  // namespace
}  // namespace test
}  // namespace refhost
