#include "refhost/access/SignIns.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/refhost/base/ManualClock.h"

namespace refhost
{
namespace
{

using test::ManualClock;

class SignInsTest : public testing::Test
{
protected:
    std::string open(const std::string& user)
    {
        return signIns.open(user).value_or("");
    }

    std::vector<UserConfig> users{{"anna", "a"}, {"bert", "b"}};
    ManualClock clock;
    SignIns signIns{users, clock};
};

TEST_F(SignInsTest, ATokenIsItsUsers)
{
    const std::string anna = open("anna");
    const std::string bert = open("bert");
    EXPECT_EQ(anna.size(), 64U);
    EXPECT_EQ(signIns.userOf(anna), "anna");
    EXPECT_EQ(signIns.userOf(bert), "bert");
    for (const std::string& wrong : {std::string(), std::string(64, '0'), anna + "0", anna.substr(1)})
    {
        EXPECT_EQ(signIns.userOf(wrong), "") << wrong;
    }
}

TEST_F(SignInsTest, TokensDiffer)
{
    std::set<std::string> tokens;
    for (int i = 0; i < 100; ++i)
    {
        tokens.insert(open("anna"));
    }
    EXPECT_EQ(tokens.size(), 100U);
}

TEST_F(SignInsTest, NobodyElseSignsIn)
{
    EXPECT_FALSE(signIns.open("carl"));
    EXPECT_FALSE(signIns.open(""));
    signIns.setUsers({{"anonymous", "", "", {"1", "none", "none", "none"}}});
    EXPECT_FALSE(signIns.open("anonymous"));
    EXPECT_EQ(signIns.count(), 0U);
}

TEST_F(SignInsTest, SigningOutEndsOneTokenAlone)
{
    const std::string first = open("anna");
    const std::string second = open("anna");
    signIns.close(first);
    signIns.close(first);
    EXPECT_EQ(signIns.userOf(first), "");
    EXPECT_EQ(signIns.userOf(second), "anna");
}

TEST_F(SignInsTest, OneThatIsNotUsedEnds)
{
    const std::string used = open("anna");
    const std::string idle = open("anna");
    clock.advance(SignIns::maxIdle - std::chrono::seconds(1));
    EXPECT_EQ(signIns.userOf(used), "anna");
    clock.advance(std::chrono::seconds(1));
    EXPECT_EQ(signIns.userOf(idle), "");
    EXPECT_EQ(signIns.userOf(used), "anna");
}

TEST_F(SignInsTest, OneThatIsUsedEndsSomeTime)
{
    const std::string token = open("anna");
    for (std::chrono::hours age(0); age < SignIns::maxAge; age += std::chrono::hours(8))
    {
        EXPECT_EQ(signIns.userOf(token), "anna") << age.count();
        clock.advance(std::chrono::hours(8));
    }
    EXPECT_EQ(signIns.userOf(token), "");
}

TEST_F(SignInsTest, AUserHasABoundedNumberAndTheOldestUseGoes)
{
    const std::string other = open("bert");
    std::vector<std::string> tokens;
    for (std::size_t i = 0; i < SignIns::maxPerUser; ++i)
    {
        tokens.push_back(open("anna"));
        clock.advance(std::chrono::seconds(1));
    }
    EXPECT_EQ(signIns.userOf(tokens[0]), "anna");
    open("anna");
    EXPECT_EQ(signIns.count(), SignIns::maxPerUser + 1);
    EXPECT_EQ(signIns.userOf(tokens[0]), "anna");
    EXPECT_EQ(signIns.userOf(tokens[1]), "");
    EXPECT_EQ(signIns.userOf(other), "bert");
}

TEST_F(SignInsTest, ThereIsABoundedNumberAndTheOldestUseGoes)
{
    users.clear();
    for (std::size_t i = 0; i <= SignIns::max; ++i)
    {
        users.push_back({std::to_string(i), "x"});
    }
    signIns.setUsers(users);
    std::vector<std::string> tokens;
    for (const UserConfig& user : users)
    {
        tokens.push_back(open(user.name));
        clock.advance(std::chrono::seconds(1));
    }
    EXPECT_EQ(signIns.count(), SignIns::max);
    EXPECT_EQ(signIns.userOf(tokens[0]), "");
    EXPECT_EQ(signIns.userOf(tokens[1]), "1");
}

TEST_F(SignInsTest, AnotherPasswordEndsWhatIsOfItsUser)
{
    const std::string anna = open("anna");
    const std::string bert = open("bert");
    users[0].password = "c";
    users.push_back({"carl", "c"});
    signIns.setUsers(users);
    EXPECT_EQ(signIns.userOf(anna), "");
    EXPECT_EQ(signIns.userOf(bert), "bert");
    users[1].passwordHash = "for:x";
    signIns.setUsers(users);
    EXPECT_EQ(signIns.userOf(bert), "");
}

TEST_F(SignInsTest, AUserWhoIsRemovedIsSignedInNoMore)
{
    const std::string anna = open("anna");
    signIns.setUsers({users[1]});
    signIns.setUsers(users);
    EXPECT_EQ(signIns.userOf(anna), "");
}

}  // namespace
}  // namespace refhost
