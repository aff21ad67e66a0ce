#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeDescription.h"
#include "tests/fakehost/FakeHost.h"

/// The manager without sessions and with a closed output; the log starts behind that.
class ManagerFixture : public testing::Test
{
protected:
    using Calls = std::vector<std::string>;

    ManagerFixture();
    ~ManagerFixture() noexcept override;

    void TearDown() override;

    /// Adds a session that does not play, silently.
    int add(const std::string& sessionId);
    /// Adds a session that plays; the log starts again behind it.
    void addPlaying(const std::string& sessionId);
    /// Opens the output as the worker does, with the sessions there are; the log starts again behind it.
    void openPlayer();
    /// Whether the manager considers its output open.
    bool playerOpened();
    static SafePointer<IConnection> connection(int kind = 1);

    FakeHost& host_ = FakeHost::instance();
    SafePointer<OVAudioBackDispatcherMgr> manager_ = OVAudioBackDispatcherMgr::getInstance();
    const SubMediaInfo track_ = FakeDescription::backChannel();
};

/// As above, with an output set.
class ManagerWithPlayer : public ManagerFixture
{
protected:
    ~ManagerWithPlayer() noexcept override;
    void SetUp() override;
};
