#include "refhost/base/InterfaceAddresses.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace refhost
{

TEST(InterfaceAddresses, FindsTheLoopbackInterface)
{
    const auto all = interfaceAddresses();
    const auto loopback =
        std::find_if(all.begin(), all.end(),
                     [](const InterfaceAddress& each) { return each.address.text() == "127.0.0.1"; });
    ASSERT_NE(loopback, all.end());
    EXPECT_EQ("lo", loopback->interface);
    EXPECT_TRUE(loopback->loopback);
    EXPECT_TRUE(loopback->running);
    EXPECT_EQ(0, loopback->address.port());
}

}  // namespace refhost
