#include "refhost/capture/CameraStates.h"

#include <gtest/gtest.h>

#include <memory>

#include "refhost/base/ServerEvents.h"

namespace refhost
{
namespace
{

CameraStatus statusOf(CameraState state, const std::string& error = {})
{
    CameraStatus status;
    status.state = state;
    status.lastError = error;
    return status;
}

TEST(CameraStates, SnapshotHasEachStreamInOrder)
{
    CameraStates states;
    const CameraStates::Row second(states, {2, 0}, "camera 2/0 \"yard\"");
    const CameraStates::Row first(states, {1, 1}, "camera 1/1");
    const auto all = states.snapshot();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].title, "camera 1/1");
    EXPECT_EQ(all[1].camera, 2);
    EXPECT_EQ(all[1].stream, 0);
    EXPECT_EQ(all[1].state, CameraState::idle);
}

TEST(CameraStates, NewerRowOfAKeyReplacesTheOlderOne)
{
    CameraStates states;
    auto old = std::make_unique<CameraStates::Row>(states, CameraStates::Key{1, 0}, "old");
    CameraStates::Row renewed(states, {1, 0}, "new");
    renewed.set(statusOf(CameraState::starting));
    old->set(statusOf(CameraState::running));
    old = nullptr;
    ASSERT_TRUE(states.find(1, 0));
    EXPECT_EQ(states.find(1, 0)->title, "new");
    EXPECT_EQ(states.find(1, 0)->state, CameraState::starting);
    EXPECT_FALSE(states.find(1, 1));
}

TEST(CameraStates, RowEndsWithItsStream)
{
    CameraStates states;
    {
        const CameraStates::Row row(states, {1, 0}, "camera 1/0");
    }
    EXPECT_TRUE(states.snapshot().empty());
}

TEST(CameraStates, ChangeIsPublishedOnceWithItsError)
{
    CameraStates states;
    CameraStates::Row row(states, {7, 0}, "camera 7/0");
    const auto events = ServerEvents::instance().subscribe(9, nullptr);
    row.set(statusOf(CameraState::starting));
    row.set(statusOf(CameraState::starting));
    row.set(statusOf(CameraState::refused, "wrong password"));
    const auto taken = events->take().events;
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(std::get<std::string>(*taken[0]->find("state")), "starting");
    EXPECT_EQ(std::get<std::string>(*taken[1]->find("before")), "starting");
    EXPECT_EQ(std::get<std::string>(*taken[1]->find("error")), "wrong password");
}

}  // namespace
}  // namespace refhost
