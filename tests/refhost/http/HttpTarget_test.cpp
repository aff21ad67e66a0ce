#include "refhost/http/HttpTarget.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

using testing::ElementsAre;
using testing::Pair;

TEST(HttpTarget, HasSegmentsAndParameters)
{
    const auto target = HttpTarget::parse("/api/v1/cam%20era/?a=1&b=x%26y+z&c&a=2");
    ASSERT_TRUE(target);
    EXPECT_THAT(target->segments, ElementsAre("api", "v1", "cam era", ""));
    EXPECT_THAT(target->query,
                ElementsAre(Pair("a", "1"), Pair("b", "x&y z"), Pair("c", ""), Pair("a", "2")));
    EXPECT_EQ(target->parameter("a"), "1");
    EXPECT_EQ(target->parameter("d"), std::nullopt);
}

TEST(HttpTarget, RefusesWhatIsNoPath)
{
    for (const char* const text :
         {"", "*", "a", "http://a/", "/%", "/%1", "/%zz", "/%00", "/a%2fb", "/?a=%", "/?%g1"})
    {
        EXPECT_FALSE(HttpTarget::parse(text)) << text;
    }
    EXPECT_TRUE(HttpTarget::parse("/"));
}

TEST(HttpTarget, BoundsItsParts)
{
    std::string path;
    std::string query = "/?";
    for (std::size_t i = 0; i < HttpTarget::maxParts; ++i)
    {
        path += "/a";
        query += "a&";
    }
    EXPECT_TRUE(HttpTarget::parse(path));
    EXPECT_FALSE(HttpTarget::parse(path + "/a"));
    EXPECT_TRUE(HttpTarget::parse(query));
    EXPECT_FALSE(HttpTarget::parse(query + "a"));
}

TEST(HttpTarget, EveryPrefixIsReadOrRefused)
{
    const std::string whole = "/api/v1/%41?x=%42+%2f&y=";
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        const auto target = HttpTarget::parse(whole.substr(0, size));
        EXPECT_TRUE(!target || target->segments.size() <= 3);
    }
}

}  // namespace
}  // namespace refhost
