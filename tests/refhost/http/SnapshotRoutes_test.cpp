#include "refhost/http/SnapshotRoutes.h"

#include <gmock/gmock.h>

#include "tests/refhost/http/HttpServiceFixture.h"
#include "tests/refhost/http/StatedStreams.h"
#include "tests/refhost/playback/RecordedMedia.h"
#include "tests/refhost/snapshot/JpegSize.h"

namespace refhost
{
namespace test
{
namespace
{

using testing::HasSubstr;

class Recorded : public RecordedMediaTest
{
public:
    Recorded()
    {
        gst_init(nullptr, nullptr);
    }
    using RecordedMediaTest::addSegment;
    using RecordedMediaTest::at;
    using RecordedMediaTest::recordings;

private:
    void TestBody() override {}
};

class SnapshotRoutesTest : public HttpServiceFixture
{
protected:
    ~SnapshotRoutesTest() override
    {
        // It holds streams of the test.
        service.reset();
    }

    void startWithRoutes()
    {
        make();
        auto inForce = std::make_shared<const ServerConfig>(config);
        SnapshotRoutes::add(
            service->router(), {[inForce] { return inForce; }, &users->rights, &streams->states, nullptr},
            std::make_shared<SnapshotService>(
                [this] { return streams; }, [this] { return recorded.recordings; },
                SnapshotService::Pauses{std::chrono::milliseconds(0), std::chrono::seconds(20)}));
        start();
    }

    static std::string target(const std::string& query = "", const std::string& stream = "1/streams/0")
    {
        return "/api/v1/cameras/" + stream + "/snapshot.jpg" + query;
    }

    static std::string time(double seconds)
    {
        return "time=" + std::to_string(secondsOf(Recorded::at(seconds).time_since_epoch()));
    }

    std::shared_ptr<StatedStreams> streams = std::make_shared<StatedStreams>();
    Recorded recorded;
};

TEST_F(SnapshotRoutesTest, RecordedInstantComesAsAJpegOfTheWidth)
{
    recorded.addSegment(10, 2);
    startWithRoutes();
    const HttpAnswer answer = get(target("?width=80&" + time(11.5)));
    ASSERT_EQ(answer.status, 200) << answer.body;
    EXPECT_EQ(answer.field("Content-Type"), "image/jpeg");
    EXPECT_EQ(JpegSize::of(answer.body).width, 80);
    const HttpAnswer again =
        get(target("?width=80&" + time(11.6)), "If-None-Match: " + answer.field("ETag") + "\r\n");
    EXPECT_EQ(again.status, 304);
}

TEST_F(SnapshotRoutesTest, WrongRequestsAreRefusedWithAReason)
{
    recorded.addSegment(10, 2);
    startWithRoutes();
    const struct
    {
        std::string target;
        int status;
        const char* said;
    } cases[] = {
        {target("?width=0"), 400, "width"},
        {target("?width=15"), 400, "width"},
        {target("?width=8193"), 400, "width"},
        {target("?width=99999999999999999999"), 400, "width"},
        {target("?width=wide"), 400, "width"},
        {target("?time=now"), 400, "time"},
        {target("?" + time(50)), 404, "nothing was recorded"},
        {target("", "yard/streams/0"), 404, "no such stream"},
        {target("", "1/streams/x"), 404, "no such stream"},
        {target(), 503, "no key frame yet"},
    };
    for (const auto& row : cases)
    {
        const HttpAnswer answer = get(row.target);
        EXPECT_EQ(answer.status, row.status) << row.target;
        EXPECT_THAT(answer.body, HasSubstr(row.said)) << row.target;
    }
    EXPECT_EQ(get(target()).field("Retry-After"), "1");
}

TEST_F(SnapshotRoutesTest, LiveAndRecordedNeedTheirOwnRights)
{
    recorded.addSegment(10, 2);
    config.users = {{"boss", "secret"}, {"guest", "secret"}};
    config.users[1].grants.live = "*";
    startWithRoutes();
    const std::string boss = basic("Ym9zczpzZWNyZXQ=");
    const std::string guest = basic("Z3Vlc3Q6c2VjcmV0");
    EXPECT_EQ(get(target("?" + time(11))).status, 401);
    EXPECT_EQ(get(target("?" + time(11)), boss).status, 200);
    EXPECT_EQ(get(target("?" + time(11)), guest).status, 403);
    EXPECT_EQ(get(target(), guest).status, 503);
}

}  // namespace
}  // namespace test
}  // namespace refhost
