#include "refhost/http/ExportRoutes.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

#include "tests/refhost/export/ExportFixture.h"
#include "tests/refhost/http/HttpServiceFixture.h"

namespace refhost
{
namespace test
{
namespace
{

using testing::HasSubstr;

class Recorded : public ExportTest
{
public:
    using ExportTest::index_;
    using ExportTest::record;
    using MadeUnits::epoch;

private:
    void TestBody() override {}
};

class ExportRoutesTest : public HttpServiceFixture
{
protected:
    void startWithRoutes()
    {
        make();
        ExportRoutes::add(service->router(), service->background(),
                          [this] { return std::make_shared<const IndexedRecordings>(recorded.index_); });
        start();
    }

    static std::string target(double begin, double end, const std::string& camera = "1")
    {
        const auto text = [](double time)
        { return std::to_string(static_cast<double>(unixSeconds(Recorded::epoch)) + 0.123456789 + time); };
        return "/api/v1/recordings/" + camera + "/export.mp4?start=" + text(begin) + "&end=" + text(end);
    }

    Recorded recorded;
};

TEST_F(ExportRoutesTest, WholeFileComesWithItsLengthAndName)
{
    recorded.record(0, 4);
    startWithRoutes();
    const HttpAnswer answer = get(target(1, 3));
    EXPECT_EQ(answer.status, 200);
    EXPECT_TRUE(answer.complete);
    EXPECT_EQ(answer.field("Content-Type"), "video/mp4");
    EXPECT_EQ(answer.field("Content-Length"), std::to_string(answer.body.size()));
    EXPECT_EQ(answer.field("Accept-Ranges"), "bytes");
    EXPECT_THAT(answer.field("Content-Disposition"), HasSubstr("attachment; filename=\"camera1_"));
    EXPECT_EQ(answer.body.substr(4, 4), "ftyp");
    EXPECT_GT(answer.body.size(), 50'000U);
}

TEST_F(ExportRoutesTest, PartsMakeUpTheWhole)
{
    recorded.record(0, 4);
    startWithRoutes();
    const HttpAnswer whole = get(target(1, 3));
    std::string joined;
    for (std::size_t at = 0; at < whole.body.size(); at += 9973)
    {
        const HttpAnswer part =
            get(target(1, 3), "Range: bytes=" + std::to_string(at) + "-" + std::to_string(at + 9972) +
                                  "\r\nIf-Range: " + whole.field("ETag") + "\r\n");
        ASSERT_EQ(part.status, 206);
        const std::size_t last = std::min(at + 9972, whole.body.size() - 1);
        EXPECT_EQ(part.field("Content-Range"), "bytes " + std::to_string(at) + "-" + std::to_string(last) +
                                                   "/" + std::to_string(whole.body.size()));
        joined += part.body;
    }
    EXPECT_EQ(joined, whole.body);
}

TEST_F(ExportRoutesTest, ChangedFileIsSentWholeToWhoResumes)
{
    recorded.record(0, 4);
    startWithRoutes();
    const HttpAnswer answer = get(target(1, 3), "Range: bytes=100-\r\nIf-Range: \"of-another\"\r\n");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body.substr(4, 4), "ftyp");
}

TEST_F(ExportRoutesTest, KnownFileIsNotSentAgain)
{
    recorded.record(0, 4);
    startWithRoutes();
    const std::string tag = get(target(1, 3)).field("ETag");
    const HttpAnswer answer = get(target(1, 3), "If-None-Match: " + tag + "\r\n");
    EXPECT_EQ(answer.status, 304);
    EXPECT_EQ(answer.field("ETag"), tag);
    EXPECT_EQ(get(target(1, 2.5), "If-None-Match: " + tag + "\r\n").status, 200);
}

TEST_F(ExportRoutesTest, RangeBehindTheEndIsRefusedWithTheSize)
{
    recorded.record(0, 4);
    startWithRoutes();
    const std::string size = get(target(1, 3)).field("Content-Length");
    const HttpAnswer answer = get(target(1, 3), "Range: bytes=" + size + "-\r\n");
    EXPECT_EQ(answer.status, 416);
    EXPECT_EQ(answer.field("Content-Range"), "bytes */" + size);
}

TEST_F(ExportRoutesTest, WrongRequestsAreRefusedWithAReason)
{
    recorded.record(0, 4);
    startWithRoutes();
    const std::string path = "/api/v1/recordings/1/export.mp4";
    const struct
    {
        std::string target;
        int status;
        const char* said;
    } cases[] = {
        {path, 400, "start"},
        {path + "?start=1600000000", 400, "parameter end"},
        {path + "?start=yesterday&end=now", 400, "parameter start"},
        {target(3, 1), 400, "interval is empty"},
        {target(0, 90'000), 400, "24 hours"},
        {target(1, 3) + "&stream=x", 400, "parameter stream"},
        {target(1, 3) + "&stream=7", 404, "Nothing was recorded"},
        {target(100, 200), 404, "Nothing was recorded"},
        {target(1, 3, "2"), 404, "Nothing was recorded"},
        {target(1, 3, "yard"), 404, "camera"},
        {target(1, 3, "99999999999999999999"), 404, "camera"},
        {target(1, 3) + "&x=" + std::string(20'000, 'y'), 414, ""},
    };
    for (const auto& row : cases)
    {
        const HttpAnswer answer = get(row.target);
        EXPECT_TRUE(answer.status == row.status || (row.status == 414 && answer.status >= 400))
            << row.target << answer.status;
        EXPECT_THAT(answer.body, HasSubstr(row.said)) << row.target;
    }
}

TEST_F(ExportRoutesTest, NeedsTheRightToPlayTheCamerasRecordings)
{
    recorded.record(0, 4);
    config.users = {{"boss", "secret"}};
    startWithRoutes();
    EXPECT_EQ(get(target(1, 3)).status, 401);
    EXPECT_EQ(get(target(1, 3), basic("Ym9zczp3cm9uZw==")).status, 401);
    EXPECT_EQ(get(target(1, 3), basic("Ym9zczpzZWNyZXQ=")).status, 200);
}

TEST_F(ExportRoutesTest, RecordingThatIsRemovedMeanwhileCutsTheConnection)
{
    recorded.record(0, 240);
    const std::string second = recorded.record(240, 280);
    startWithRoutes();
    HttpTestClient slow(service->port(), 4096);
    slow.trySend(HttpTestClient::text("GET", target(0, 280)));
    ASSERT_TRUE(slow.awaitHead());
    std::filesystem::remove(second);
    const HttpAnswer answer = slow.answer();
    EXPECT_EQ(answer.status, 200);
    EXPECT_FALSE(answer.complete);
}

TEST_F(ExportRoutesTest, ExportsBeyondTheLimitAreRefused)
{
    recorded.record(0, 240);
    startWithRoutes();
    std::vector<std::unique_ptr<HttpTestClient>> readers;
    for (int i = 0; i < ExportRoutes::maxExports; ++i)
    {
        // It takes nothing.
        readers.push_back(std::make_unique<HttpTestClient>(service->port(), 4096));
        readers.back()->trySend(HttpTestClient::text("GET", target(0, 240)));
    }
    ASSERT_TRUE(eventually([this] { return get(target(1, 3)).status == 503; }));
    readers.clear();
    EXPECT_TRUE(eventually([this] { return get(target(1, 3)).status == 200; }));
}

}  // namespace
}  // namespace test
}  // namespace refhost
