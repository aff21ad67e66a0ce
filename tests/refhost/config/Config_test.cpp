#include "refhost/config/Config.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace refhost
{
namespace
{

using testing::HasSubstr;

TEST(ServerConfig, WarnsOfRecordingsThatTheDiskCannotHold)
{
    ServerConfig config = ServerConfig::embedded();
    EXPECT_TRUE(config.warnings().empty());
    config.recording.maxSize = std::int64_t{1} << 50;
    ASSERT_EQ(config.warnings().size(), 1U);
    EXPECT_THAT(config.warnings()[0], HasSubstr("max-size of [recording] is 1024TiB"));
    config.recording.minFree = "2000TiB";
    ASSERT_EQ(config.warnings().size(), 1U);
    EXPECT_THAT(config.warnings()[0], HasSubstr("nothing can be recorded"));
    config.cameras[0].streams[0].record = RecordMode::never;
    EXPECT_TRUE(config.warnings().empty()) << "nothing is recorded";
}

TEST(ServerConfig, WarnsOfListeningBeyondLoopbackWithoutUsers)
{
    ServerConfig config;
    for (const std::string loopback : {"127.0.0.1", "127.1.2.3", "::1"})
    {
        config.listen = loopback;
        EXPECT_TRUE(config.warnings().empty()) << loopback;
    }
    for (const std::string open : {"0.0.0.0", "::", "192.0.2.1", "fe80::1"})
    {
        config.listen = open;
        ASSERT_EQ(config.warnings().size(), 1U) << open;
        EXPECT_THAT(config.warnings()[0], HasSubstr(open));
    }
    config.users = {{"a", "b", "", {"*", "", "", ""}}};
    EXPECT_TRUE(config.warnings().empty());
}

TEST(ServerConfig, WarnsOfUsersWhoMayDoEverythingBecauseNothingIsSaid)
{
    ServerConfig config;
    config.users = {
        {"a", "b"}, {"c", "d", "guards"}, {"e", "f", "", {"", "", "", "none"}}, {"anonymous", ""}};
    ASSERT_EQ(config.warnings().size(), 1U);
    EXPECT_THAT(config.warnings()[0], HasSubstr("user \"a\" may do everything"));
}

TEST(UserConfig, NamesOfGroupsAreSeparatedByCommas)
{
    using Names = std::vector<std::string>;
    EXPECT_EQ((UserConfig{"a", "p", ""}).groupNames(), Names());
    EXPECT_EQ((UserConfig{"a", "p", " , ,"}).groupNames(), Names());
    EXPECT_EQ((UserConfig{"a", "p", "x"}).groupNames(), Names{"x"});
    EXPECT_EQ((UserConfig{"a", "p", " x y,z , w"}).groupNames(), (Names{"x y", "z", "w"}));
}

TEST(ServerConfig, WarnsOfTalkBackWithoutAudibleOutput)
{
    ServerConfig config = ServerConfig::embedded();
    config.talkBack.output = "null";
    EXPECT_FALSE(config.offersTalkBack());
    EXPECT_TRUE(config.warnings().empty());
    config.cameras[0].talkBack = Codec::pcmu;
    EXPECT_TRUE(config.offersTalkBack());
    ASSERT_EQ(config.warnings().size(), 1U);
    EXPECT_THAT(config.warnings()[0], HasSubstr("nobody will hear"));
    config.talkBack.output = "alsa";
    EXPECT_TRUE(config.warnings().empty());
}

TEST(ServerConfig, WarnsOfFilesThatCannotBeRead)
{
    ServerConfig config;
    StreamConfig stream;
    stream.source = {SourceConfig::Kind::file, "/nonexistent.mp4"};
    config.cameras = {{2, "", {stream}}};
    ASSERT_EQ(config.warnings().size(), 1U);
    EXPECT_EQ(config.warnings()[0], "camera 2/0: /nonexistent.mp4 cannot be read now");
}

TEST(ServerConfig, WarnsOfTlsSettingsWithoutACertificate)
{
    ServerConfig config;
    config.tls.key = "key.pem";
    EXPECT_FALSE(config.tls.enabled());
    ASSERT_EQ(config.warnings().size(), 1U);
    EXPECT_THAT(config.warnings()[0], HasSubstr("there is no TLS"));
    config.tls.certificate = "certificate.pem";
    EXPECT_TRUE(config.tls.enabled());
    EXPECT_TRUE(config.warnings().empty());
    config.tls.listen = "0.0.0.0";
    ASSERT_EQ(config.warnings().size(), 1U);
    EXPECT_THAT(config.warnings()[0], HasSubstr("0.0.0.0"));
}

}  // namespace
}  // namespace refhost
