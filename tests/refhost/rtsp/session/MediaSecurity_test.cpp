#include "refhost/rtsp/session/MediaSecurity.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

constexpr Protection all[] = {Protection::none, Protection::tls, Protection::srtp, Protection::anyEncrypted};

/// Which of the eight combinations of connection, transport and profile are admitted, written out for each.
TEST(MediaSecurity, AdmitsWhatTheCameraRequires)
{
    struct Row
    {
        bool encrypted;
        bool interleaved;
        bool secure;
        std::string admittedBy;  // the first letters: none, tls, srtp, any-encrypted
    };
    const Row rows[] = {{false, false, false, "n"}, {false, false, true, "nsa"}, {false, true, false, "n"},
                        {false, true, true, "nsa"}, {true, false, false, "n"},   {true, false, true, "nsa"},
                        {true, true, false, "nta"}, {true, true, true, "ntsa"}};
    for (const Row& row : rows)
    {
        TransportChoice choice;
        choice.interleaved = row.interleaved;
        choice.secure = row.secure;
        std::string admitted;
        for (const Protection protection : all)
        {
            if (MediaSecurity::admits(protection, row.encrypted, choice))
            {
                admitted += MediaSecurity::nameOf(protection).front();
            }
        }
        EXPECT_EQ(admitted, row.admittedBy)
            << "TLS " << row.encrypted << " interleaved " << row.interleaved << " SRTP " << row.secure;
    }
}

TEST(MediaSecurity, DescribesSrtpWhereItIsNeededOrRequested)
{
    EXPECT_FALSE(MediaSecurity::describesSrtp(Protection::none, false, false));
    EXPECT_TRUE(MediaSecurity::describesSrtp(Protection::none, false, true));
    EXPECT_TRUE(MediaSecurity::describesSrtp(Protection::srtp, true, false));
    EXPECT_TRUE(MediaSecurity::describesSrtp(Protection::anyEncrypted, false, false));
    EXPECT_FALSE(MediaSecurity::describesSrtp(Protection::anyEncrypted, true, false));
    EXPECT_TRUE(MediaSecurity::describesSrtp(Protection::anyEncrypted, true, true));
    EXPECT_FALSE(MediaSecurity::describesSrtp(Protection::tls, true, true));
}

TEST(MediaSecurity, ACameraMayHaveItsOwn)
{
    ServerConfig config;
    config.security = "tls";
    config.cameras = {CameraConfig{1, "", {}}, CameraConfig{2, "", {}}};
    config.cameras[1].security = "none";
    const MediaSecurity security(config);
    EXPECT_EQ(security.of(1), Protection::tls);
    EXPECT_EQ(security.of(2), Protection::none);
    EXPECT_EQ(security.of(3), Protection::tls);
    EXPECT_EQ(security.of(std::nullopt), Protection::tls);
}

TEST(MediaSecurity, KeysMayBeForTlsConnectionsOnly)
{
    ServerConfig config;
    EXPECT_TRUE(MediaSecurity(config).keysAllowed(false));
    config.srtp.keys = "tls-only";
    EXPECT_FALSE(MediaSecurity(config).keysAllowed(false));
    EXPECT_TRUE(MediaSecurity(config).keysAllowed(true));
}

}  // namespace
}  // namespace refhost
