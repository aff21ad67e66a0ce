#include "refhost/rtsp/session/CommonControllers.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "tests/refhost/rtsp/session/FakeControllers.h"

namespace refhost
{
namespace test
{
namespace
{

/// A controller of a presentation whose video has these format parameters.
class DescribedController : public FakeController
{
public:
    DescribedController(const std::shared_ptr<ControllerScript>& script, std::string url, std::string format)
        : FakeController(script), url_(std::move(url)), format_(std::move(format)), script_(script)
    {
    }

    int getMediaInfo(MediaInfo& out) override
    {
        out = MediaInfo();
        out.mediaUrl = url_;
        SubMediaInfo video = SampleTracks::video();
        video.formatParameters = format_;
        out.addSubMediaInfo(video);
        if (script_->talkBack)
        {
            SubMediaInfo back = SampleTracks::audio();
            back.setAudioBackInfoFlag(true);
            out.addSubMediaInfo(back);
        }
        return script_->call("getMediaInfo");
    }

private:
    const std::string url_;
    const std::string format_;
    const std::shared_ptr<ControllerScript> script_;
};

class CommonControllersTest : public testing::Test
{
protected:
    SafePointer<IRTSPController> made(const std::string& url, const std::string& format = "a")
    {
        return SafePointer<IRTSPController>(new DescribedController(script, url, format));
    }

    /// Whether both are handles to one controller.
    static bool same(const SafePointer<IRTSPController>& one, const SafePointer<IRTSPController>& other)
    {
        return one.operator->() == other.operator->();
    }

    std::shared_ptr<ControllerScript> script = std::make_shared<ControllerScript>();
    const std::unique_ptr<MediaRoutes::Route> other = std::make_unique<MediaRoutes::Route>();
    const std::unique_ptr<MediaRoutes::Route> own = std::make_unique<MediaRoutes::Route>();
    const MediaRoutes::Route& route = *own;
    CommonControllers controllers;
};

}  // namespace

TEST_F(CommonControllersTest, ServeFurtherSessionsOfTheSamePresentation)
{
    const auto first = controllers.common(route, made("orv/live/1/0"));
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_TRUE(same(first, controllers.common(route, made("orv/live/1/0"))));
    }
    EXPECT_EQ(script->living, 1);
}

TEST_F(CommonControllersTest, DifferByPresentation)
{
    const auto first = controllers.common(route, made("orv/live/1/0"));
    EXPECT_FALSE(same(first, controllers.common(route, made("orv/live/1/1"))));
}

TEST_F(CommonControllersTest, DifferByRoute)
{
    const auto first = controllers.common(route, made("orv/live/1/0"));
    EXPECT_FALSE(same(first, controllers.common(*other, made("orv/live/1/0"))));
}

TEST_F(CommonControllersTest, AreReplacedWhenThePresentationIsDescribedDifferently)
{
    const auto first = controllers.common(route, made("orv/live/1/0", "a"));
    const auto second = controllers.common(route, made("orv/live/1/0", "b"));
    EXPECT_FALSE(same(first, second));
    EXPECT_TRUE(same(second, controllers.common(route, made("orv/live/1/0", "b"))));
    EXPECT_EQ(controllers.kept(), 1u);
}

TEST_F(CommonControllersTest, AreNotThoseWithABackChannel)
{
    script->talkBack = true;
    const auto first = controllers.common(route, made("orv/live/1/0"));
    EXPECT_FALSE(same(first, controllers.common(route, made("orv/live/1/0"))));
    EXPECT_EQ(controllers.kept(), 0u);
}

TEST_F(CommonControllersTest, AreNotThoseThatDescribeNothing)
{
    script->results["getMediaInfo"] = -1;
    const auto first = controllers.common(route, made("orv/live/1/0"));
    EXPECT_FALSE(same(first, controllers.common(route, made("orv/live/1/0"))));
}

TEST_F(CommonControllersTest, AreKeptForABoundedNumberOfPresentations)
{
    for (std::size_t i = 0; i < CommonControllers::maxKept; ++i)
    {
        controllers.common(route, made(std::to_string(i)));
    }
    const auto beyond = controllers.common(route, made("beyond"));
    EXPECT_FALSE(same(beyond, controllers.common(route, made("beyond"))));
    EXPECT_EQ(controllers.kept(), CommonControllers::maxKept);
}

}  // namespace test
}  // namespace refhost
