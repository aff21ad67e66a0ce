#include "refhost/ConfigReload.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Outcome = Reloader::Outcome;

class ConfigReloadTest : public testing::Test
{
protected:
    ConfigReloadTest()
    {
        write("linger = 1\n");
        reload_ = std::make_unique<ConfigReload>(source_, *source_.read().config);
        reload_->add(
            [this](const ServerConfig& config)
            {
                first_.push_back(config.linger);
                return std::string();
            });
        reload_->add(
            [this](const ServerConfig& config)
            {
                second_.push_back(config.linger);
                return refusal_;
            });
    }

    void write(const std::string& text) const
    {
        std::ofstream(source_.file) << text;
    }

    bool isReadable() const
    {
        pollfd watched{reload_->descriptor(), POLLIN, 0};
        return ::poll(&watched, 1, 0) == 1;
    }

    const TemporaryFolder folder_;
    ConfigSource source_{folder_ / "ovrtspd.toml", {}, nullptr};
    std::unique_ptr<ConfigReload> reload_;
    std::vector<int> first_;
    std::vector<int> second_;
    std::string refusal_;
};

TEST_F(ConfigReloadTest, EveryPartGetsTheNewConfiguration)
{
    write("linger = 2\nport = 9\n");
    const Outcome outcome = reload_->reload();
    EXPECT_TRUE(outcome.succeeded());
    EXPECT_THAT(outcome.applied, ElementsAre("linger"));
    EXPECT_THAT(outcome.needRestart, ElementsAre("port"));
    EXPECT_THAT(first_, ElementsAre(2));
    EXPECT_THAT(second_, ElementsAre(2));
    EXPECT_EQ(reload_->running()->linger, 2);
    EXPECT_EQ(reload_->running()->port, ServerConfig().port);
}

TEST_F(ConfigReloadTest, AWrongFileReachesNoPart)
{
    write("linger = 2\nlimits = 3\n");
    const Outcome outcome = reload_->reload();
    EXPECT_THAT(outcome.problems, ElementsAre(HasSubstr("ovrtspd.toml:2:")));
    EXPECT_THAT(first_, ElementsAre());
    EXPECT_EQ(reload_->running()->linger, 1);
}

TEST_F(ConfigReloadTest, WhatOnePartRefusesIsTakenBackFromTheOthers)
{
    refusal_ = "its port is in use";
    write("linger = 2\n");
    EXPECT_THAT(reload_->reload().problems, ElementsAre("its port is in use"));
    EXPECT_THAT(first_, ElementsAre(2, 1));
    EXPECT_EQ(reload_->running()->linger, 1);
}

TEST_F(ConfigReloadTest, OptionsOfTheCommandLineStayInForce)
{
    source_.overrides = {{"linger", "5"}};
    ConfigReload reload(source_, *source_.read().config);
    write("linger = 2\n");
    EXPECT_TRUE(reload.reload().succeeded());
    EXPECT_EQ(reload.running()->linger, 5);
}

TEST_F(ConfigReloadTest, TheUsersFileIsReadAgainToo)
{
    const auto users = [this](const std::string& text) { std::ofstream(folder_ / "users.toml") << text; };
    const std::string text = "users-file = \"users.toml\"\n";
    users("[[user]]\nname = \"a\"\npassword = \"one\"\n");
    write(text);
    ASSERT_TRUE(reload_->reload().succeeded());
    users("[[user]]\nname = \"a\"\npassword = \"two\"\n[[user]]\nname = \"b\"\npassword = \"three\"\n");
    EXPECT_THAT(reload_->reload().applied, ElementsAre("user \"a\": password", "user \"b\" added"));
    EXPECT_EQ(reload_->running()->users.front().password, "two");
    users("[[user]]\nname = \"a\"\npassword = \"top-secret\n");
    EXPECT_THAT(reload_->reload().problems,
                ElementsAre(AllOf(HasSubstr("users.toml:3:"), Not(HasSubstr("top-secret")))));
    EXPECT_EQ(reload_->running()->users.size(), 2u);
}

TEST_F(ConfigReloadTest, RequestsWakeTheThreadThatServesThemAndShareAnOutcome)
{
    write("linger = 3\n");
    int answered = 0;
    EXPECT_FALSE(isReadable());
    for (int i = 0; i < 2; ++i)
    {
        reload_->requestReload([&](const Outcome& outcome) { answered += outcome.succeeded() ? 1 : 0; });
    }
    EXPECT_TRUE(isReadable());
    EXPECT_EQ(answered, 0);
    reload_->serve();
    EXPECT_EQ(answered, 2);
    EXPECT_THAT(first_, ElementsAre(3));
    EXPECT_FALSE(isReadable());
}

TEST_F(ConfigReloadTest, RequestsBeyondTheBoundAreRefusedAtOnce)
{
    for (std::size_t i = 0; i < ConfigReload::maxWaiting; ++i)
    {
        reload_->requestReload(nullptr);
    }
    bool refused = false;
    reload_->requestReload([&](const Outcome& outcome) { refused = !outcome.succeeded(); });
    EXPECT_TRUE(refused);
    reload_->serve();
    EXPECT_THAT(first_, ElementsAre(1));
}

TEST_F(ConfigReloadTest, WithoutAFileThereIsNothingToRead)
{
    ConfigReload reload(ConfigSource(), ServerConfig::embedded());
    EXPECT_THAT(reload.reload().problems, ElementsAre(HasSubstr("without --config")));
}

}  // namespace
}  // namespace refhost
