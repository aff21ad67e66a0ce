#include "support/OVRuntimeError.h"

#include <gtest/gtest.h>

#include <string>

TEST(OVRuntimeError, WhatReturnsTheMessage)
{
    std::string message = "a message that is too long to be stored inside of a string object";
    const OVRuntimeError error(message);
    message.assign("changed");
    EXPECT_STREQ("a message that is too long to be stored inside of a string object", error.what());
}

TEST(OVRuntimeError, IsCaughtAsAStandardException)
{
    try
    {
        throw OVRuntimeError("misuse");
    }
    catch (const std::exception& error)
    {
        EXPECT_STREQ("misuse", error.what());
    }
}

TEST(OVRuntimeError, CopyOwnsItsMessage)
{
    OVRuntimeError* const original = new OVRuntimeError("kept by the copy, whatever becomes of the original");
    const OVRuntimeError copy(*original);
    delete original;
    EXPECT_STREQ("kept by the copy, whatever becomes of the original", copy.what());
}
