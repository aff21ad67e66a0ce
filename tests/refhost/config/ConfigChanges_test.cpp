#include "refhost/config/ConfigChanges.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "refhost/config/ConfigReader.h"

namespace refhost
{
namespace
{

using testing::ElementsAre;
using testing::UnorderedElementsAre;

ServerConfig read(const std::string& text)
{
    const ConfigResult result = ConfigReader::read(text);
    EXPECT_TRUE(result.config.has_value()) << text;
    return result.config.value_or(ServerConfig());
}

std::vector<std::string> changesOf(const std::string& running, const std::string& next)
{
    std::vector<std::string> lines;
    const ConfigChanges changes(read(running), read(next));
    for (const ConfigChanges::Change& change : changes.all())
    {
        lines.push_back(change.name + ": " + std::string(textOf(change.effect)));
    }
    return lines;
}

const char* const twoCameras = R"(
[[user]]
name = "anna"
password = "one"
live = "*"
[[camera]]
id = 1
name = "yard"
  [[camera.stream]]
  id = 0
  [[camera.stream]]
  id = 1
[[camera]]
id = 2
  [[camera.stream]]
  id = 0
)";

TEST(ConfigChanges, AConfigurationDoesNotDifferFromItself)
{
    EXPECT_THAT(changesOf(twoCameras, twoCameras), ElementsAre());
}

TEST(ConfigChanges, KeysAreNamedWithTheirSectionsAndEffects)
{
    EXPECT_THAT(
        changesOf("", "port = 99\nlog-level = \"debug\"\n[limits]\nsessions = 5\n[multicast]\nttl = 3\n"),
        ElementsAre("port: needs a restart", "log-level: at once", "[limits] sessions: at once",
                    "[multicast] ttl: needs a restart"));
}

TEST(ConfigChanges, CamerasAndStreamsAreComparedByTheirIds)
{
    EXPECT_THAT(changesOf(twoCameras, R"(
[[user]]
name = "anna"
password = "two"
live = "1"
[[camera]]
id = 2
  [[camera.stream]]
  id = 0
  width = 320
  height = 240
  record = true
[[camera]]
id = 1
name = "garden"
  [[camera.stream]]
  id = 1
[[camera]]
id = 3
  [[camera.stream]]
  id = 0
)"),
                UnorderedElementsAre(
                    "user \"anna\": password: at once, for newcomers", "user \"anna\": live: at once",
                    "camera 1: name: at once", "camera 1, stream 0 removed: ends the former, starts the new",
                    "camera 2, stream 0: width: restarts the source",
                    "camera 2, stream 0: height: restarts the source", "camera 2, stream 0: record: at once",
                    "camera 3 added: ends the former, starts the new"));
}

TEST(ConfigChanges, ValuesAreNotReported)
{
    for (const std::string& line : changesOf(twoCameras, std::string(twoCameras) + R"(
[[user]]
name = "berta"
password = "secret"
live = "1"
)"))
    {
        EXPECT_EQ(line.find("secret"), std::string::npos) << line;
    }
}

TEST(ConfigChanges, WhatNeedsARestartKeepsItsValueUntilThen)
{
    const ServerConfig running = read("port = 1000\nmtu = 1400\n[limits]\nsessions = 7\n");
    const ServerConfig next = read("port = 2000\n[limits]\nsessions = 8\n");
    const ConfigChanges changes(running, next);
    EXPECT_THAT(changes.needRestart(), ElementsAre("port", "mtu"));
    EXPECT_EQ(changes.effective().port, 1000);
    EXPECT_EQ(changes.effective().mtu, 1400);
    EXPECT_EQ(changes.effective().limits.sessions, 8);

    // So that every reload says it, until there is a restart or the key is set back.
    EXPECT_THAT(ConfigChanges(changes.effective(), next).needRestart(), ElementsAre("port", "mtu"));
    EXPECT_THAT(ConfigChanges(changes.effective(), running).needRestart(), ElementsAre());
}

}  // namespace
}  // namespace refhost
