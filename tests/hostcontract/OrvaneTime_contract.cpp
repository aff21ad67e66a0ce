#include <gtest/gtest.h>

#include <chrono>

#include "hostapi/base/OrvaneTime.h"
#include "tests/hostcontract/HostUnderTest.h"

using namespace std::chrono_literals;

TEST(OrvaneTimeContract, KeepsTheValuesItWasCreatedWith)
{
    const OrvaneTime span(7, 999999);
    EXPECT_EQ(7, span.getSeconds());
    EXPECT_EQ(999999, span.getMicroseconds());
}

TEST(OrvaneTimeContract, WaitTakesTheWholeSpan)
{
    const auto start = HostUnderTest::now();
    OrvaneTime::wait(OrvaneTime(0, 20000));
    const auto passed = HostUnderTest::now() - start;
    EXPECT_GE(passed, 20ms);
    EXPECT_LT(passed, 5s);
}

TEST(OrvaneTimeContract, WaitOfNothingReturns)
{
    const auto start = HostUnderTest::now();
    OrvaneTime::wait(OrvaneTime(0, 0));
    EXPECT_LT(HostUnderTest::now() - start, 5s);
}
