#include "refhost/http/PageRoutes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "refhost/http/PageFiles.h"
#include "tests/refhost/http/HttpServiceFixture.h"

namespace refhost
{
namespace
{

using test::HttpAnswer;
using testing::HasSubstr;
using testing::Not;

class PageRoutesTest : public test::HttpServiceFixture
{
protected:
    void serve()
    {
        PageRoutes::add(make().router());
        start();
    }

    static std::string file(const std::string& path)
    {
        std::ifstream stream(std::string(OV_WEB_DIR "/") + path, std::ios::binary);
        EXPECT_TRUE(stream) << path;
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }
};

TEST_F(PageRoutesTest, EveryFileIsServedAsItIs)
{
    serve();
    std::size_t count = 0;
    const PageFile* const files = pageFiles(count);
    EXPECT_GT(count, 5U);
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::string path(files[i].path);
        const HttpAnswer answer = get("/" + path);
        EXPECT_EQ(answer.status, 200) << path;
        EXPECT_EQ(answer.body, file(path)) << path;
        EXPECT_THAT(answer.field("Content-Type"), Not(HasSubstr("octet-stream"))) << path;
    }
}

TEST_F(PageRoutesTest, TheRootIsThePage)
{
    serve();
    const HttpAnswer answer = get("/");
    EXPECT_EQ(answer.body, file("index.html"));
    EXPECT_EQ(answer.field("Content-Type"), "text/html; charset=utf-8");
}

TEST_F(PageRoutesTest, ThePolicyPermitsNothingFromElsewhereAndNothingInline)
{
    serve();
    const std::string policy = get("/").field("Content-Security-Policy");
    EXPECT_THAT(policy, HasSubstr("default-src 'none'"));
    EXPECT_THAT(policy, HasSubstr("frame-ancestors 'none'"));
    EXPECT_THAT(policy, Not(HasSubstr("unsafe")));
    EXPECT_THAT(policy, Not(HasSubstr("http")));
    const std::string page = get("/").body;
    EXPECT_FALSE(std::regex_search(page, std::regex("<script(?![^>]*src=)|<style| style=| on[a-z]+=")))
        << "inline";
    EXPECT_FALSE(std::regex_search(page, std::regex("(src|href)=\"(https?:)?//"))) << "from elsewhere";
}

TEST_F(PageRoutesTest, AFileThatTheBrowserHasIsNotSentAgain)
{
    serve();
    const HttpAnswer first = get("/js/app.js");
    const HttpAnswer again = get("/js/app.js", "If-None-Match: " + first.field("ETag") + "\r\n");
    EXPECT_EQ(again.status, 304);
    EXPECT_EQ(again.body, "");
    EXPECT_EQ(get("/js/app.js", "If-None-Match: \"other\"\r\n").status, 200);
    EXPECT_NE(get("/style.css").field("ETag"), first.field("ETag"));
}

// A module that is imported and not part of the program would be missed by browsers only.
TEST_F(PageRoutesTest, WhatTheModulesImportIsThere)
{
    std::size_t count = 0;
    const PageFile* const files = pageFiles(count);
    std::set<std::string> paths;
    for (std::size_t i = 0; i < count; ++i)
    {
        paths.emplace(files[i].path);
    }
    const std::regex import("from '\\./([^']+)'");
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::string text(files[i].contents);
        for (std::sregex_iterator each(text.begin(), text.end(), import), end; each != end; ++each)
        {
            EXPECT_EQ(paths.count("js/" + (*each)[1].str()), 1U) << files[i].path << ": " << (*each)[1];
        }
    }
}

}  // namespace
}  // namespace refhost
