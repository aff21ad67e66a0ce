#include "refhost/net/ConnectFailure.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace refhost
{
namespace
{

TEST(ConnectFailure, SaysHostPortAndCause)
{
    EXPECT_EQ(ConnectFailure::text("192.0.2.7", 554, ECONNREFUSED), "connection refused by 192.0.2.7:554");
    EXPECT_EQ(ConnectFailure::text("2001:db8::7", 8554, ECONNREFUSED),
              "connection refused by [2001:db8::7]:8554");
    EXPECT_EQ(ConnectFailure::text("yard.example", 554, ETIMEDOUT),
              "no answer from yard.example:554: timed out");
    EXPECT_EQ(ConnectFailure::text("192.0.2.7", 554, EHOSTUNREACH),
              "cannot connect to 192.0.2.7:554: No route to host");
    EXPECT_EQ(ConnectFailure::text("yard.example", 322, "its certificate is not trusted"),
              "cannot connect to yard.example:322: its certificate is not trusted");
}

}  // namespace
}  // namespace refhost
