#include "refhost/http/HttpRouter.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

HttpRouter made()
{
    HttpRouter router;
    const auto add = [&](const char* method, const char* pattern) {
        router.add(
            {method, pattern, HttpAccess::open(), [](const HttpRequest&) { return HttpReply::empty(); }});
    };
    add("GET", "/a");
    add("GET", "/a/{id}/b");
    add("POST", "/a/{id}/b");
    add("GET", "/a/{one}/{two}");
    return router;
}

TEST(HttpRouter, FindsARouteByMethodAndPath)
{
    const HttpRouter router = made();
    EXPECT_EQ(router.find("GET", {"a"}).route, &router.routes()[0]);
    EXPECT_EQ(router.find("HEAD", {"a"}).route, &router.routes()[0]);
    EXPECT_EQ(router.find("POST", {"a", "7", "b"}).route, &router.routes()[2]);
    EXPECT_EQ(router.find("GET", {"a", "7", "b"}).parts.at("id"), "7");
    EXPECT_EQ(router.find("GET", {"a", "7", "c"}).parts.at("two"), "c");
}

TEST(HttpRouter, FindsNothingForOtherPathsAndMethods)
{
    const HttpRouter router = made();
    EXPECT_EQ(router.find("GET", {"b"}).route, nullptr);
    EXPECT_EQ(router.find("GET", {"b"}).allowed, "");
    EXPECT_EQ(router.find("GET", {"a", ""}).allowed, "");
    EXPECT_EQ(router.find("GET", {"a", "", "b"}).allowed, "");
    EXPECT_EQ(router.find("GET", {"a", "7", "b", "c"}).allowed, "");
    EXPECT_EQ(router.find("PUT", {"a"}).route, nullptr);
    EXPECT_EQ(router.find("PUT", {"a"}).allowed, "GET, HEAD");
}

TEST(HttpRouter, APartThatIsNotThereIsEmpty)
{
    HttpRequest request;
    request.parts["a"] = "b";
    EXPECT_EQ(request.part("a"), "b");
    EXPECT_EQ(request.part("c"), "");
}

}  // namespace
}  // namespace refhost
