#include "refhost/rtsp/NonceBook.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/refhost/rtsp/SteppedClock.h"

namespace refhost
{
namespace
{

class NonceBookTest : public testing::Test
{
protected:
    SteppedClock time_;
    NonceBook book_{time_.clock()};
};

TEST_F(NonceBookTest, TakesEveryCountOnce)
{
    const std::string nonce = book_.issue();
    EXPECT_TRUE(book_.use(nonce, 1));
    EXPECT_FALSE(book_.use(nonce, 1));
    EXPECT_TRUE(book_.use(nonce, 2));
    EXPECT_FALSE(book_.use(nonce, 2));
    EXPECT_FALSE(book_.use(nonce, 1));
}

TEST_F(NonceBookTest, TakesCountsOutOfOrderWithinItsWindow)
{
    const std::string nonce = book_.issue();
    EXPECT_TRUE(book_.use(nonce, 100));
    EXPECT_TRUE(book_.use(nonce, 37));
    EXPECT_FALSE(book_.use(nonce, 37));
    EXPECT_FALSE(book_.use(nonce, 36));
    EXPECT_TRUE(book_.use(nonce, 99));
    EXPECT_TRUE(book_.use(nonce, 1000));
    EXPECT_FALSE(book_.use(nonce, 100));
}

TEST_F(NonceBookTest, TakesAnswersWithoutCountUntilTheNonceExpires)
{
    const std::string nonce = book_.issue();
    EXPECT_TRUE(book_.use(nonce, 0));
    EXPECT_TRUE(book_.use(nonce, 0));
    time_.advance(NonceBook::lifetimeMs);
    EXPECT_FALSE(book_.use(nonce, 0));
}

TEST_F(NonceBookTest, ANonceExpires)
{
    const std::string nonce = book_.issue();
    time_.advance(NonceBook::lifetimeMs);
    EXPECT_FALSE(book_.use(nonce, 1));
}

TEST_F(NonceBookTest, RefusesNoncesThatItDidNotIssue)
{
    const std::string nonce = book_.issue();
    for (std::size_t i = 0; i < nonce.size(); ++i)
    {
        std::string changed = nonce;
        changed[i] = changed[i] == '0' ? '1' : '0';
        EXPECT_FALSE(book_.use(changed, 1)) << "digit " << i;
        EXPECT_FALSE(book_.use(nonce.substr(0, i), 1));
    }
    EXPECT_FALSE(NonceBook(time_.clock()).use(nonce, 1));
    EXPECT_TRUE(book_.use(nonce, 1));
}

TEST_F(NonceBookTest, IssuingCostsNoMemory)
{
    for (int i = 0; i < 100; ++i)
    {
        book_.issue();
    }
    EXPECT_EQ(book_.remembered(), 0u);
}

TEST_F(NonceBookTest, RemembersABoundedNumberAndExpiresWhatItForgot)
{
    std::vector<std::string> nonces;
    for (std::size_t i = 0; i <= NonceBook::rememberedMost; ++i)
    {
        nonces.push_back(book_.issue());
        time_.advance(1);
        ASSERT_TRUE(book_.use(nonces.back(), 1));
    }
    EXPECT_EQ(book_.remembered(), NonceBook::rememberedMost);
    EXPECT_FALSE(book_.use(nonces.front(), 1)) << "a forgotten nonce must not be usable anew";
    EXPECT_TRUE(book_.use(nonces.back(), 2));
}

}  // namespace
}  // namespace refhost
