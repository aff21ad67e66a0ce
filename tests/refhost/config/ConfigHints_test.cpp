#include "refhost/config/ConfigHints.h"

#include <gmock/gmock-matchers.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "refhost/config/ConfigReader.h"
#include "tests/TemporaryFolder.h"

namespace refhost
{
namespace
{

using testing::HasSubstr;

std::string problemOf(const std::string& text, const std::string& directory = {})
{
    const ConfigResult result = ConfigReader::read(text, directory);
    return result.problems.empty() ? "" : result.problems.front().message;
}

std::string stream(const std::string& lines)
{
    return "[[camera]]\nid = 1\n[[camera.stream]]\nid = 0\n" + lines + "\n";
}

TEST(ConfigHints, NamesOfOtherProgramsLeadToThoseHere)
{
    EXPECT_EQ("unknown key \"url\": write location in [[camera.stream]]", problemOf("url = \"rtsp://a/\""));
    EXPECT_EQ("unknown key \"url\": write location in [[camera.stream]]",
              problemOf("[[camera]]\nurl = \"rtsp://a/\"\n[[camera.stream]]\nid = 0"));
    EXPECT_EQ("unknown key \"server\": its keys stand at the top of the file, before the first section",
              problemOf("[server]\nport = 1"));
    EXPECT_EQ("unknown key \"stream\": write [[camera.stream]] below its [[camera]]",
              problemOf("[[stream]]\nid = 0"));
    EXPECT_EQ("unknown key \"retention\": write max-age, max-size or min-free in [recording]",
              problemOf("retention = 7"));
    EXPECT_EQ("unknown key \"retention\": write max-age, max-size or min-free in [recording]",
              problemOf("[recording]\nretention = \"7d\""));
    EXPECT_EQ("", ConfigHints::nameHere("nothing like it"));
}

TEST(ConfigHints, ValuesWithoutQuotesAreNamed)
{
    EXPECT_THAT(problemOf("listen = 127.0.0.1"), HasSubstr("text stands in quotes: KEY = \"VALUE\""));
    EXPECT_THAT(problemOf("port = 1\nrealm = yard\n"), HasSubstr("text stands in quotes"));
    EXPECT_THAT(problemOf(stream("source = rtsp")), HasSubstr("text stands in quotes"));
    EXPECT_THAT(problemOf("realm ="), HasSubstr("the value is missing"));
}

TEST(ConfigHints, QuotesThatAreNotClosedAreNamed)
{
    EXPECT_THAT(problemOf("realm = \"yard\nport = 1\n"),
                HasSubstr("the quote is not closed: write \" after the value"));
    EXPECT_THAT(problemOf("realm = 'yard"), HasSubstr("the quote is not closed: write ' after the value"));
}

TEST(ConfigHints, BackslashesInDoubleQuotesAreNamed)
{
    EXPECT_THAT(problemOf("[recording]\ndirectory = \"D:\\videos\""),
                HasSubstr("a backslash starts an escape"));
    EXPECT_THAT(problemOf("[recording]\ndirectory = \"C:\\rec\""), HasSubstr("a backslash starts an escape"));
    EXPECT_EQ("", problemOf("[recording]\ndirectory = 'C:\\rec'"));
}

TEST(ConfigHints, TildeOfAShellIsNamed)
{
    EXPECT_THAT(problemOf("[recording]\ndirectory = \"~/rec\""), HasSubstr("directory must be a whole path"));
    EXPECT_THAT(problemOf(stream("source = \"file\"\nlocation = \"~/film.mp4\"")), HasSubstr("whole path"));
    EXPECT_EQ("", problemOf("[recording]\ndirectory = \"rec~\""));
}

TEST(ConfigHints, AddressWithAZoneIsNamed)
{
    EXPECT_THAT(problemOf("listen = \"fe80::1%eth0\""), HasSubstr("no zone (%eth0)"));
}

TEST(ConfigHints, UrlWithoutAHostIsRefused)
{
    for (const char* const url :
         {"rtsp://", "rtsp:///path", "rtsp://:554/", "rtsps://user:pass@/path", "rtsp://user@:554"})
    {
        EXPECT_THAT(problemOf(stream("source = \"rtsp\"\nlocation = \"" + std::string(url) + "\"")),
                    HasSubstr("location has no host: rtsp://HOST/PATH"))
            << url;
    }
    for (const char* const url :
         {"rtsp://a", "rtsp://[::1]:554/x", "rtsp://u:p@a/", "rtsp://u:p/q@a/", "rtsp://u:p@q@a:1/"})
    {
        EXPECT_EQ("", ConfigHints::forHostOf(url)) << url;
    }
}

TEST(ConfigHints, FolderIsNoFileSource)
{
    const TemporaryFolder folder;
    ::mkdir((folder / "films").c_str(), 0700);
    EXPECT_THAT(problemOf(stream("source = \"file\"\nlocation = \"films\""), folder.path()),
                HasSubstr("location is a folder: name a media file in it"));
    EXPECT_EQ("", problemOf(stream("source = \"file\"\nlocation = \"films/later.mp4\""), folder.path()));
}

TEST(ConfigHints, OddTextsHaveNone)
{
    for (const char* const text : {"", "=", "#", "a", "= \"", "\n\n=\n"})
    {
        for (int line = 0; line < 5; ++line)
        {
            ConfigHints::forSyntax(text, line);
        }
    }
}

}  // namespace
}  // namespace refhost
