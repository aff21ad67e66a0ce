#include "refhost/config/CameraSet.h"

#include <gtest/gtest.h>

#include <string>

namespace refhost
{
namespace
{

std::string numbersOf(const std::string& text)
{
    const auto set = CameraSet::parse(text);
    if (!set)
    {
        return "refused";
    }
    std::string found;
    for (int camera = 0; camera < 10; ++camera)
    {
        found += set->contains(camera) ? std::to_string(camera) : "";
    }
    return found;
}

TEST(CameraSet, ReadsNumbersAndRanges)
{
    EXPECT_EQ(numbersOf("*"), "0123456789");
    EXPECT_EQ(numbersOf(" * "), "0123456789");
    EXPECT_EQ(numbersOf("none"), "");
    EXPECT_EQ(numbersOf("1"), "1");
    EXPECT_EQ(numbersOf("0,7"), "07");
    EXPECT_EQ(numbersOf("1, 3-5 , 9"), "13459");
    EXPECT_EQ(numbersOf("3 - 4"), "34");
    EXPECT_EQ(numbersOf("2-2"), "2");
    EXPECT_EQ(numbersOf("5,1-6,5"), "123456");
    EXPECT_EQ(numbersOf("8-999999"), "89");
}

TEST(CameraSet, RefusesEverythingElse)
{
    for (const char* const text :
         {"",    " ",   ",",   "1,",     ",1",      "1,,2",       "a",   "1a",  "-1",
          "1-",  "-",   "5-3", "1-2-3",  "1000000", "0-1000000",  "+1",  "1.0", "all",
          "*,1", "1,*", "1 2", "none,1", "NONE",    "4294967297", "\t1", "1\n"})
    {
        EXPECT_EQ(numbersOf(text), "refused") << text;
    }
}

TEST(CameraSet, ACameraThatIsNotKnownIsOnlyAmongAll)
{
    EXPECT_TRUE(CameraSet::all().contains(std::nullopt));
    EXPECT_FALSE(CameraSet::parse("0-999999")->contains(std::nullopt));
    EXPECT_FALSE(CameraSet().contains(std::nullopt));
}

TEST(CameraSet, AddedSetsAreJoined)
{
    CameraSet set;
    EXPECT_TRUE(set.empty());
    set.add(*CameraSet::parse("2"));
    set.add(*CameraSet::parse("4-5"));
    EXPECT_FALSE(set.empty());
    EXPECT_FALSE(set.contains(3));
    EXPECT_TRUE(set.contains(2) && set.contains(4) && set.contains(5));
    set.add(CameraSet::all());
    EXPECT_TRUE(set.contains(3));
}

}  // namespace
}  // namespace refhost
