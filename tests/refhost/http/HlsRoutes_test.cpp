#include "refhost/http/HlsRoutes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "refhost/media/Device.h"
#include "tests/refhost/fragments/Boxes.h"
#include "tests/refhost/fragments/PacedCamera.h"
#include "tests/refhost/http/HttpServiceFixture.h"

namespace refhost
{
namespace
{

using test::HttpAnswer;
using test::HttpTestClient;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::string folder = "/api/v1/cameras/1/streams/0/hls/";

class HlsRoutesTest : public test::HttpServiceFixture
{
protected:
    HlsRoutesTest()
    {
        Device::setStreams(cameras_);
    }
    ~HlsRoutesTest() override
    {
        service.reset();
        Device::setStreams(nullptr);
    }

    void serve()
    {
        const auto fragments = std::make_shared<FragmentStreams>(time);
        streams_ = std::make_shared<HlsStreams>(fragments, time);
        HlsRoutes::add(make().router(), streams_);
        start();
    }

    /// The playlist after the first segment.
    HttpAnswer begin(const std::string& headers = "")
    {
        HttpTestClient client(service->port());
        client.send(HttpTestClient::text("GET", folder + "live.m3u8", headers));
        EXPECT_TRUE(eventually([this] { return waiting() == 1; }));
        EXPECT_TRUE(cameras_->giveUntil([this] { return waiting() == 0; }));
        return client.answer();
    }

    std::size_t waiting() const
    {
        return streams_->find(1, 0)->waiting();
    }

    /// The first segment's address; its duration depends on how this machine keeps up.
    static std::string segment(const std::string& text)
    {
        return "media/" + after(text, ",\nmedia/");
    }

    static std::string after(const std::string& text, const std::string& sign)
    {
        const std::size_t from = text.find(sign) + sign.size();
        return text.substr(from, text.find_first_of("\"\n", from) - from);
    }

    std::shared_ptr<test::PacedCamera> cameras_ = std::make_shared<test::PacedCamera>();
    std::shared_ptr<HlsStreams> streams_;
};

TEST_F(HlsRoutesTest, AnyCacheMayKeepWhatItServes)
{
    serve();
    const HttpAnswer playlist = begin();
    EXPECT_EQ(playlist.status, 200);
    EXPECT_EQ(playlist.field("Content-Type"), "application/vnd.apple.mpegurl");
    EXPECT_THAT(playlist.field("Cache-Control"), MatchesRegex("public, max-age=[1-5]"));
    const std::string number = after(playlist.body, "MEDIA-SEQUENCE:");
    const HttpAnswer named = get(folder + "live.m3u8?_HLS_msn=" + number + "&_HLS_part=0");
    EXPECT_EQ(named.status, 200);
    EXPECT_THAT(named.field("Cache-Control"), MatchesRegex("public, max-age=[1-9][0-9]"));
    const HttpAnswer index = get(folder + "index.m3u8");
    EXPECT_EQ(index.status, 200);
    EXPECT_THAT(index.body, HasSubstr("RESOLUTION=320x180,FRAME-RATE=2"));
    for (const std::string& name :
         {after(playlist.body, "MAP:URI=\""), segment(playlist.body),
          after(playlist.body, "PRELOAD-HINT:TYPE=PART,URI=\"").substr(0, 19) + "p0.m4s"})
    {
        const HttpAnswer file = get(folder + name);
        EXPECT_EQ(file.status, 200) << name;
        EXPECT_TRUE(file.complete) << name;
        EXPECT_EQ(file.field("Content-Type"), "video/mp4");
        EXPECT_EQ(file.field("Cache-Control"), "public, max-age=3600, immutable");
        EXPECT_EQ(file.field("Content-Length"), std::to_string(file.body.size()));
    }
    HttpTestClient client(service->port());
    const HttpAnswer head = client.request("HEAD", folder + segment(playlist.body));
    EXPECT_EQ(head.status, 200);
    EXPECT_GT(std::stoul(head.field("Content-Length")), 20000U);
}

TEST_F(HlsRoutesTest, WhatIsToComeIsWaitedFor)
{
    serve();
    begin();
    HttpTestClient part(service->port());
    std::string hint;
    // What came last may still be on its way.
    ASSERT_TRUE(eventually(
        [&]
        {
            hint = after(get(folder + "live.m3u8").body, "PRELOAD-HINT:TYPE=PART,URI=\"");
            part.send(HttpTestClient::text("GET", folder + hint));
            if (eventually([this] { return waiting() == 1; }, std::chrono::milliseconds(300)))
            {
                return true;
            }
            part.answer();
            return false;
        }));
    const std::string text = get(folder + "live.m3u8").body;
    std::uint64_t next = std::stoull(after(text, "MEDIA-SEQUENCE:"));
    for (std::size_t at = text.find("#EXTINF"); at != std::string::npos; at = text.find("#EXTINF", at + 1))
    {
        ++next;
    }
    HttpTestClient playlist(service->port());
    playlist.send(HttpTestClient::text(
        "GET", folder + "live.m3u8?_HLS_msn=" + std::to_string(next + 1) + "&_HLS_part=0"));
    EXPECT_TRUE(eventually([this] { return waiting() == 2; }));
    EXPECT_EQ(get(folder + "live.m3u8").status, 200) << "others do not wait";
    EXPECT_TRUE(cameras_->giveUntil([this] { return waiting() == 0; }));
    const HttpAnswer came = part.answer();
    EXPECT_EQ(came.status, 200);
    EXPECT_GT(came.body.size(), 1000U);
    EXPECT_THAT(playlist.answer().body, HasSubstr(hint + "\""));
}

TEST_F(HlsRoutesTest, ManyWaitOnOneConnectionAfterTheOther)
{
    serve();
    begin();
    HttpTestClient client(service->port());
    for (int i = 0; i < 20; ++i)
    {
        EXPECT_EQ(client.get(folder + "live.m3u8").status, 200);
    }
}

TEST_F(HlsRoutesTest, WhoWaitsInVainGets503)
{
    serve();
    HttpTestClient client(service->port());
    client.send(HttpTestClient::text("GET", folder + "index.m3u8"));
    EXPECT_TRUE(eventually([this] { return waiting() == 1; }));
    time.advance(HlsStream::maxStart + Duration(1));
    const HttpAnswer answer = client.answer();
    EXPECT_EQ(answer.status, 503);
    EXPECT_EQ(answer.field("Retry-After"), "1");
    EXPECT_EQ(answer.field("Cache-Control"), "no-store");
}

TEST_F(HlsRoutesTest, AClientThatGoesIsForgotten)
{
    serve();
    {
        HttpTestClient client(service->port());
        client.send(HttpTestClient::text("GET", folder + "live.m3u8"));
        EXPECT_TRUE(eventually([this] { return waiting() == 1; }));
    }
    // Its end of the connection may still be open.
    time.advance(HlsStream::maxStart + Duration(1));
    EXPECT_TRUE(eventually([this] { return service->connectionCount() == 0; }));
    EXPECT_TRUE(eventually([this] { return waiting() == 0; }));
}

TEST_F(HlsRoutesTest, WhatIsNotThereIsNotFound)
{
    serve();
    begin();
    for (const std::string& target :
         {folder + "media/none.m4s", folder + "other.m3u8",
          std::string("/api/v1/cameras/2/streams/0/hls/live.m3u8"),
          std::string("/api/v1/cameras/x/streams/0/hls/live.m3u8"), folder + "media/"})
    {
        EXPECT_EQ(get(target).status, 404) << target;
    }
    const std::string playlist = folder + "live.m3u8?";
    for (const std::string query : {"_HLS_part=0", "_HLS_msn=x", "_HLS_msn=", "_HLS_msn=-1",
                                    "_HLS_msn=18446744073709551615", "_HLS_msn=1&_HLS_part=1.5"})
    {
        EXPECT_EQ(get(playlist + query).status, 400) << query;
    }
}

TEST_F(HlsRoutesTest, OnlyWhoMayWatchTheCameraGetsIt)
{
    UserConfig viewer;
    viewer.name = "viewer";
    viewer.password = "secret";
    UserConfig other = viewer;
    other.name = "other";
    other.grants.live = "2";
    viewer.grants.live = "1";
    config.users = {viewer, other};
    serve();
    const HttpAnswer playlist = begin(asViewer());
    EXPECT_EQ(playlist.status, 200);
    EXPECT_THAT(playlist.field("Cache-Control"), MatchesRegex("private, max-age=[1-5]"));
    for (const std::string& name :
         {std::string("index.m3u8"), std::string("live.m3u8"), segment(playlist.body)})
    {
        EXPECT_EQ(get(folder + name).status, 401) << name;
        EXPECT_EQ(get(folder + name, asOther()).status, 403) << name;
        const HttpAnswer own = get(folder + name, asViewer());
        EXPECT_EQ(own.status, 200) << name;
        EXPECT_THAT(own.field("Cache-Control"), MatchesRegex("private, max-age=.*")) << name;
    }
}

}  // namespace
}  // namespace refhost
