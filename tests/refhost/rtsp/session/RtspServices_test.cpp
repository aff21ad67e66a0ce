#include "refhost/rtsp/session/RtspServices.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

TEST(RtspServices, RequestsAreJudgedByAnotherConfigurationFromThenOn)
{
    ServerConfig config;
    config.cameras = {CameraConfig{1, "", {StreamConfig()}}};
    RtspServices services(config, MediaRoutes(), HostClock::system());
    const auto former = services.policy.get();
    EXPECT_EQ(former->security.of(1), Protection::none);

    config.cameras.front().security = "srtp";
    config.auth.basic = "always";
    config.tls.certificateUsers = true;
    config.limits.idleTimeout = 7;
    config.srtp.suite = "AEAD_AES_128_GCM";
    services.setPolicy(config);

    const auto present = services.policy.get();
    EXPECT_EQ(present->security.of(1), Protection::srtp);
    EXPECT_TRUE(services.users->takesBasic(false));
    EXPECT_TRUE(services.users->takesCertificates());
    EXPECT_EQ(present->limits.idleTimeout, 7);
    EXPECT_EQ(present->srtpSuite, SrtpSuite::aeadAes128Gcm);
    // A request that still holds the former one is not disturbed.
    EXPECT_EQ(former->security.of(1), Protection::none);
}

}  // namespace
}  // namespace refhost
