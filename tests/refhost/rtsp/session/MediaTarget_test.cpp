#include "refhost/rtsp/session/MediaTarget.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace refhost
{
namespace
{

std::string targetOf(const MediaRoutes::Route& route, const std::string& presentation)
{
    const MediaTarget target = MediaTarget::of(route, presentation);
    return std::string(nameOf(target.right)) + " " +
           (target.camera ? std::to_string(*target.camera) : std::string("-"));
}

TEST(MediaTarget, IsTheCameraThatTheLibraryReads)
{
    MediaRoutes::Route live;
    EXPECT_EQ(targetOf(live, "orv/live/12/3"), "live 12");
    EXPECT_EQ(targetOf(live, "second/orv/live/12/3"), "live 12");
    EXPECT_EQ(targetOf(live, "orv/live/012/3"), "live 12");
    EXPECT_EQ(targetOf(live, "orv/live/12"), "live -");
    EXPECT_EQ(targetOf(live, "orv/live/x/3"), "live -");
    EXPECT_EQ(targetOf(live, "orv/live/1/0/orv/live/2/0"), "live -");
    MediaRoutes::Route recorded;
    recorded.recorded = true;
    EXPECT_EQ(targetOf(recorded, "orv/playback/7_1_2"), "playback 7");
    EXPECT_EQ(targetOf(recorded, "orv/playback/7_1"), "playback -");
    MediaRoutes::Route multicast;
    multicast.together = std::make_shared<SmallMutex>();
    EXPECT_EQ(targetOf(multicast, "orv/multicast/5/0"), "live 5");
    EXPECT_EQ(targetOf(multicast, "orv/live/5/0"), "live -");
}

}  // namespace
}  // namespace refhost
