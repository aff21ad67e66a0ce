#include "refhost/ServerAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace refhost
{

TEST(ServerAddress, OneAddressIsReachableAsItself)
{
    EXPECT_EQ("127.0.0.1", reachableAddress("127.0.0.1"));
    EXPECT_EQ("2001:db8::1", reachableAddress("2001:db8::1"));
}

TEST(ServerAddress, WildcardIsReachableAsOneOfThisMachinesAddresses)
{
    for (const char* const every : {"0.0.0.0", "::"})
    {
        in_addr address{};
        ASSERT_EQ(1, inet_pton(AF_INET, reachableAddress(every).c_str(), &address)) << every;
        EXPECT_NE(INADDR_ANY, address.s_addr) << every;
    }
}

TEST(ServerAddress, UrlHasBracketsAroundAnAddressWithColons)
{
    EXPECT_EQ("rtsp://127.0.0.1:8554/", serverUrl("127.0.0.1", 8554));
    EXPECT_EQ("rtsp://[::1]:8554/", serverUrl("::1", 8554));
}

TEST(ServerAddress, UnknownPortHasAPlaceholder)
{
    EXPECT_EQ("rtsp://127.0.0.1:PORT/", serverUrl("127.0.0.1", 0));
}

}  // namespace refhost
