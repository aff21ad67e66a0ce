#include "refhost/access/SlowHash.h"

#include <gtest/gtest.h>

#include <string>

#include "refhost/config/PasswordHash.h"

namespace refhost
{
namespace
{

TEST(SlowHash, FitsItsPasswordAndNoOther)
{
    const std::string hash = SlowHash::make("p\xc3\xa4ss w:rd@");
    EXPECT_TRUE(SlowHash::verify("p\xc3\xa4ss w:rd@", hash));
    for (const char* const other : {"", "p", "p\xc3\xa4ss w:rd@ ", "P\xc3\xa4ss w:rd@"})
    {
        EXPECT_FALSE(SlowHash::verify(other, hash)) << other;
    }
    EXPECT_TRUE(PasswordHash::parse("crypt:" + hash)) << hash;
}

TEST(SlowHash, APasswordEndsAtItsEndAndNotAtANul)
{
    EXPECT_FALSE(SlowHash::verify(std::string("secret\0x", 8), SlowHash::make("secret")));
}

TEST(SlowHash, EachHasASaltOfItsOwn)
{
    EXPECT_NE(SlowHash::make("a"), SlowHash::make("a"));
}

TEST(SlowHash, NothingFitsWhatIsNoHash)
{
    for (const char* const hash : {"", "*0", "$y$", "$y$j9T$abc$", "secret", "$nothing$a$b"})
    {
        EXPECT_FALSE(SlowHash::verify("secret", hash)) << hash;
    }
}

}  // namespace
}  // namespace refhost
