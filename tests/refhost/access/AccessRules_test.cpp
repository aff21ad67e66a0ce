#include "refhost/access/AccessRules.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "refhost/access/AccessControl.h"

namespace refhost
{
namespace
{

UserConfig user(const std::string& name, const GrantsConfig& grants, const std::string& groups = {})
{
    return {name, "secret", groups, grants};
}

UserConfig anonymous(const GrantsConfig& grants)
{
    return {"anonymous", "", "", grants};
}

/// The rights of a user for cameras 1 to 3 and an unknown one, as "live:1,2 talk:?".
std::string rightsOf(const AccessRules& rules, const std::string& name)
{
    std::string all;
    for (const Right right : allRights)
    {
        std::string cameras;
        for (int camera = 1; camera <= 3; ++camera)
        {
            cameras += rules.allows(name, right, camera) ? std::to_string(camera) : "";
        }
        cameras += rules.allows(name, right, std::nullopt) ? "?" : "";
        all += cameras.empty() ? "" : (all.empty() ? "" : " ") + std::string(nameOf(right)) + ":" + cameras;
    }
    return all;
}

const std::string everything = "live:123? playback:123? talk:123? admin:123?";

TEST(AccessRules, WithoutUsersEverybodyMayDoEverything)
{
    const AccessRules rules({}, {});
    EXPECT_FALSE(rules.enabled());
    EXPECT_EQ(rightsOf(rules, ""), everything);
}

TEST(AccessRules, AUserWithoutGrantsMayDoEverything)
{
    const AccessRules rules({user("admin", {})}, {});
    EXPECT_TRUE(rules.enabled());
    EXPECT_EQ(rightsOf(rules, "admin"), everything);
}

TEST(AccessRules, AUserMayDoWhatItsGrantsSayAndNothingElse)
{
    const AccessRules rules({user("a", {"1, 3", "2", "", ""}), user("b", {"*", "none", "none", "3"}),
                             user("c", {"none", "", "", ""})},
                            {});
    EXPECT_EQ(rightsOf(rules, "a"), "live:13 playback:2");
    EXPECT_EQ(rightsOf(rules, "b"), "live:123? admin:3");
    EXPECT_EQ(rightsOf(rules, "c"), "") << "it has grants: none";
}

TEST(AccessRules, GroupsAddToOneAnotherAndToAUsersOwnGrants)
{
    const std::vector<GroupConfig> groups{{"day", {"1", "1", "", ""}}, {"night", {"2", "", "2", ""}}};
    const AccessRules rules({user("a", {}, "day"), user("b", {"3", "", "", ""}, " day,night ")}, groups);
    EXPECT_EQ(rightsOf(rules, "a"), "live:1 playback:1");
    EXPECT_EQ(rightsOf(rules, "b"), "live:123 playback:1 talk:2");
}

TEST(AccessRules, AUserOfAGroupThatIsNotThereMayDoNothing)
{
    const AccessRules rules({user("a", {}, "gone")}, {});
    EXPECT_EQ(rightsOf(rules, "a"), "");
}

TEST(AccessRules, WhoDoesNotLogInMayDoNothingUnlessAnonymousMay)
{
    const AccessRules closed({user("a", {})}, {});
    EXPECT_EQ(rightsOf(closed, ""), "");
    EXPECT_FALSE(closed.hasAnonymous());
    const AccessRules open({user("a", {}), anonymous({"1", "", "", ""})}, {});
    EXPECT_EQ(rightsOf(open, ""), "live:1");
    EXPECT_TRUE(open.hasAnonymous());
    EXPECT_TRUE(open.hasLogins());
    EXPECT_EQ(rightsOf(open, "anonymous"), "") << "nobody logs in by that name";
    EXPECT_FALSE(AccessRules({anonymous({"1", "", "", ""})}, {}).hasLogins());
}

TEST(AccessRules, AnonymousWithoutGrantsMayDoNothing)
{
    EXPECT_EQ(rightsOf(AccessRules({anonymous({})}, {}), ""), "");
}

TEST(AccessRules, AnonymousWithAPasswordIsAUserLikeOthers)
{
    const AccessRules rules({user("anonymous", {"2", "", "", ""})}, {});
    EXPECT_FALSE(rules.hasAnonymous());
    EXPECT_TRUE(rules.knows("anonymous"));
    EXPECT_EQ(rightsOf(rules, "anonymous"), "live:2");
    EXPECT_EQ(rightsOf(rules, ""), "");
}

TEST(AccessRules, UnknownUsersMayDoNothing)
{
    const AccessRules rules({user("a", {})}, {});
    EXPECT_FALSE(rules.knows("b"));
    EXPECT_FALSE(rules.knows(""));
    EXPECT_EQ(rightsOf(rules, "b"), "");
    EXPECT_EQ(rightsOf(rules, "A"), "") << "names are case-sensitive";
}

TEST(AccessControl, RulesThatWereTakenStayWhenOthersReplaceThem)
{
    AccessControl control(AccessRules({user("a", {"1", "", "", ""})}, {}));
    const auto before = control.rules();
    control.replace(AccessRules({user("a", {"2", "", "", ""})}, {}));
    EXPECT_EQ(rightsOf(*before, "a"), "live:1");
    EXPECT_EQ(rightsOf(*control.rules(), "a"), "live:2");
}

}  // namespace
}  // namespace refhost
