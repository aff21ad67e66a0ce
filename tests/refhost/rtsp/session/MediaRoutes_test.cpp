#include "refhost/rtsp/session/MediaRoutes.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

/// Makes no controller.
class NoFactory : public IRTSPControllerFactory
{
public:
    int createMedia(const std::string&, SafePointer<IRTSPController>&, bool) override
    {
        return -1;
    }
};

MediaRoutes::Route route(std::string prefix)
{
    MediaRoutes::Route made;
    made.prefix = std::move(prefix);
    made.factory = SafePointer<IRTSPControllerFactory>(new NoFactory);
    return made;
}

TEST(MediaRoutes, APresentationIsServedByTheRouteOfItsPrefix)
{
    MediaRoutes routes;
    routes.add(route("orv/live"));
    MediaRoutes::Route recorded = route("orv/playback");
    recorded.recorded = true;
    routes.add(recorded);
    ASSERT_NE(routes.find("orv/playback/1_0_9"), nullptr);
    EXPECT_TRUE(routes.find("orv/playback/1_0_9")->recorded);
    ASSERT_NE(routes.find("orv/live/1/0"), nullptr);
    EXPECT_FALSE(routes.find("orv/live/1/0")->recorded);
}

TEST(MediaRoutes, APrefixCountsUpToASlash)
{
    MediaRoutes routes;
    routes.add(route("orv/live"));
    EXPECT_EQ(routes.find("orv/live"), nullptr);
    EXPECT_EQ(routes.find("orv/livelier/1"), nullptr);
    EXPECT_EQ(routes.find("second/orv/live/1"), nullptr);
    EXPECT_EQ(routes.find(""), nullptr);
}

TEST(MediaRoutes, ARouteIsLiveWithoutTalkBackAndAlwaysReadyUnlessItSaysOtherwise)
{
    const MediaRoutes::Route plain = route("orv/live");
    EXPECT_FALSE(plain.recorded);
    EXPECT_FALSE(plain.talkBack);
    EXPECT_FALSE(plain.multicast());
    EXPECT_EQ(plain.ready, nullptr);
    EXPECT_EQ(plain.firstPacket, nullptr);
}

TEST(MediaRoutes, OneRouteWhoseSessionsShareAGroupMakesMulticastServed)
{
    MediaRoutes routes;
    routes.add(route("orv/live"));
    EXPECT_FALSE(routes.multicast());
    MediaRoutes::Route group = route("orv/multicast");
    group.together = std::make_shared<SmallMutex>();
    routes.add(group);
    EXPECT_TRUE(routes.multicast());
}

}  // namespace
}  // namespace refhost
