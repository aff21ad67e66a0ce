#include "refhost/http/HealthRoutes.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "refhost/http/JsonDocument.h"
#include "refhost/media/Device.h"
#include "tests/refhost/http/HttpServiceFixture.h"
#include "tests/refhost/http/StatedStreams.h"

namespace refhost
{
namespace
{

using nlohmann::json;
using State = CameraState;

class HealthRoutesTest : public test::HttpServiceFixture
{
protected:
    HealthRoutesTest()
    {
        config.cameras = {{1, "yard", {StreamConfig(), StreamConfig()}}, {2, "door", {StreamConfig()}}};
        config.cameras[0].streams[1].id = 1;
        config.cameras[0].streams[0].record = RecordMode::always;
        Device::setStreams(streams);
    }
    ~HealthRoutesTest() override
    {
        service.reset();
        Device::setStreams(nullptr);
    }

    void startWithRoutes()
    {
        auto inForce = std::make_shared<const ServerConfig>(config);
        make();
        HealthRoutes::add(service->router(), {[inForce] { return inForce; }, &users->rights, &streams->states,
                                              nullptr, nullptr, &recording});
        start();
    }

    RecordingControl recording;
    std::shared_ptr<test::StatedStreams> streams = std::make_shared<test::StatedStreams>();
};

TEST_F(HealthRoutesTest, HealthIsThatTheServiceAnswers)
{
    startWithRoutes();
    const test::HttpAnswer answer = get("/healthz");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(json::parse(answer.body).at("status"), "ok");
}

TEST_F(HealthRoutesTest, ReadyIsThatEveryStreamRunsThatMust)
{
    startWithRoutes();
    streams->at(1, 0).set(State::starting, true);
    EXPECT_EQ(get("/readyz").status, 503);
    streams->at(1, 0).set(State::running, true);
    EXPECT_EQ(get("/readyz").status, 200);
    // Nobody watches this one.
    streams->at(2, 0).set(State::failed, false);
    EXPECT_EQ(get("/readyz").status, 200);
    streams->at(2, 0).set(State::failed, true);
    const test::HttpAnswer answer = get("/readyz");
    EXPECT_EQ(answer.status, 503);
    const json document = json::parse(answer.body);
    EXPECT_EQ(document.at("ready"), false);
    EXPECT_EQ(document.at("waitingFor"), 1);
    EXPECT_EQ(document.at("streams").at(0).at("camera"), 2);
    EXPECT_EQ(document.at("streams").at(0).at("stream"), 0);
    EXPECT_EQ(document.at("streams").at(0).at("state"), "failed");
}

TEST_F(HealthRoutesTest, AStreamWhoseRecordingIsSwitchedOffNeedNotRun)
{
    startWithRoutes();
    EXPECT_EQ(get("/readyz").status, 503);
    recording.setSwitch(1, RecordingControl::Switch::off);
    EXPECT_EQ(get("/readyz").status, 200);
}

TEST_F(HealthRoutesTest, ARecordedStreamMustRunFromTheStart)
{
    startWithRoutes();
    EXPECT_EQ(get("/readyz").status, 503);
}

TEST_F(HealthRoutesTest, WhichStreamsDoNotRunIsForThoseWhoMaySeeThem)
{
    config.users = {{"boss", "secret"}};
    startWithRoutes();
    const json hidden = json::parse(get("/readyz").body);
    EXPECT_EQ(hidden.at("waitingFor"), 1);
    EXPECT_TRUE(hidden.at("streams").empty());
    EXPECT_EQ(get("/healthz").status, 200);
    const test::HttpAnswer listed = get("/readyz", basic("Ym9zczpzZWNyZXQ="));
    EXPECT_EQ(json::parse(listed.body).at("streams").size(), 1U);
    EXPECT_EQ(get("/readyz", basic("Ym9zczp3cm9uZw==")).status, 401);
}

TEST(JsonDocument, WritesTimesInUtcWithMilliseconds)
{
    EXPECT_EQ(JsonDocument::time(WallTime(std::chrono::milliseconds(1772366400250))),
              "2026-03-01T12:00:00.250Z");
    EXPECT_EQ(JsonDocument::time(WallTime()), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(JsonDocument::time(WallTime(std::chrono::milliseconds(-1))), "1969-12-31T23:59:59.999Z");
}

}  // namespace
}  // namespace refhost
