#include "refhost/base/IgnoreCase.h"

#include <gtest/gtest.h>

namespace refhost
{

TEST(IgnoreCase, LettersOfBothCasesAreEqual)
{
    EXPECT_TRUE(equalsIgnoringCase("Content-Length", "CONTENT-length"));
    EXPECT_TRUE(equalsIgnoringCase("", ""));
    EXPECT_FALSE(equalsIgnoringCase("a", "ab"));
    EXPECT_FALSE(equalsIgnoringCase("a", "b"));
}

TEST(IgnoreCase, OnlyAToZAreFolded)
{
    EXPECT_FALSE(equalsIgnoringCase("[", "{"));
    EXPECT_FALSE(equalsIgnoringCase("@", "`"));
    EXPECT_FALSE(equalsIgnoringCase("\xc4", "\xe4"));
    EXPECT_EQ("az[@\xc4", lowerCase("AZ[@\xc4"));
}

}  // namespace refhost
