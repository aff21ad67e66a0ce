#include "refhost/access/NonceStore.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/refhost/rtsp/connection/SteppedClock.h"

namespace refhost
{
namespace
{

constexpr NonceStore::Client here{{1}, 7};
constexpr NonceStore::Client hereAgain{{1}, 8};  // the same address, another connection
constexpr NonceStore::Client elsewhere{{2}, 7};

class NonceStoreTest : public testing::Test
{
protected:
    SteppedClock time_;
    NonceStore store_{time_};
};

TEST_F(NonceStoreTest, TakesEveryCountOnce)
{
    const std::string nonce = store_.issue(here);
    EXPECT_TRUE(store_.use(nonce, 1, here));
    EXPECT_FALSE(store_.use(nonce, 1, here));
    EXPECT_TRUE(store_.use(nonce, 2, here));
    EXPECT_FALSE(store_.use(nonce, 2, here));
    EXPECT_FALSE(store_.use(nonce, 1, here));
}

TEST_F(NonceStoreTest, TakesCountsOutOfOrderWithinItsWindow)
{
    const std::string nonce = store_.issue(here);
    EXPECT_TRUE(store_.use(nonce, 100, here));
    EXPECT_TRUE(store_.use(nonce, 37, here));
    EXPECT_FALSE(store_.use(nonce, 37, here));
    EXPECT_FALSE(store_.use(nonce, 36, here));
    EXPECT_TRUE(store_.use(nonce, 99, here));
    EXPECT_TRUE(store_.use(nonce, 1000, here));
    EXPECT_FALSE(store_.use(nonce, 100, here));
}

TEST_F(NonceStoreTest, IsGoodFromItsAddressAlone)
{
    const std::string nonce = store_.issue(here);
    for (const std::uint64_t count : {0u, 1u})
    {
        EXPECT_FALSE(store_.use(nonce, count, elsewhere));
    }
    EXPECT_EQ(store_.remembered(), 0u);
    EXPECT_TRUE(store_.use(nonce, 1, hereAgain)) << "a client that counts may connect again";
}

TEST_F(NonceStoreTest, TakesAnswersWithoutCountForAMinuteFromItsAddress)
{
    const std::string nonce = store_.issue(here);
    EXPECT_TRUE(store_.use(nonce, 0, hereAgain));
    EXPECT_TRUE(store_.use(nonce, 0, hereAgain));
    time_.advance(NonceStore::uncountedLifetime - std::chrono::seconds(10));
    EXPECT_TRUE(store_.use(nonce, 0, hereAgain));
    time_.advance(std::chrono::milliseconds(10000));
    EXPECT_FALSE(store_.use(nonce, 0, hereAgain));
    EXPECT_EQ(store_.remembered(), 0u) << "there is nothing to remember";
}

TEST_F(NonceStoreTest, TakesAnswersWithoutCountOnItsConnectionAsLongAsThatLasts)
{
    const std::string nonce = store_.issue(here);
    time_.advance(10 * NonceStore::lifetime);
    EXPECT_TRUE(store_.use(nonce, 0, here));
    EXPECT_FALSE(store_.use(nonce, 1, here)) << "a client that counts asks for another one";
}

TEST_F(NonceStoreTest, ANonceExpires)
{
    const std::string nonce = store_.issue(here);
    time_.advance(NonceStore::lifetime);
    EXPECT_FALSE(store_.use(nonce, 1, here));
}

TEST_F(NonceStoreTest, RefusesNoncesThatItDidNotIssue)
{
    const std::string nonce = store_.issue(hereAgain);
    time_.advance(NonceStore::uncountedLifetime);
    for (std::size_t i = 0; i < nonce.size(); ++i)
    {
        std::string changed = nonce;
        changed[i] = changed[i] == '0' ? '1' : '0';
        // The last digits depend on the connection, which matters to responses without nc.
        EXPECT_FALSE(store_.use(changed, i < 64 ? 1 : 0, hereAgain)) << "digit " << i;
        EXPECT_FALSE(store_.use(nonce.substr(0, i), 1, here));
    }
    EXPECT_FALSE(NonceStore(time_).use(nonce, 1, here));
    EXPECT_TRUE(store_.use(nonce, 1, here));
}

TEST_F(NonceStoreTest, IssuingCostsNoMemory)
{
    for (int i = 0; i < 100; ++i)
    {
        store_.issue(here);
    }
    EXPECT_EQ(store_.remembered(), 0u);
}

TEST_F(NonceStoreTest, RemembersABoundedNumberAndExpiresWhatItForgot)
{
    std::vector<std::string> nonces;
    for (std::size_t i = 0; i <= NonceStore::maxRemembered; ++i)
    {
        nonces.push_back(store_.issue(here));
        time_.advance(std::chrono::milliseconds(1));
        ASSERT_TRUE(store_.use(nonces.back(), 1, here));
    }
    EXPECT_EQ(store_.remembered(), NonceStore::maxRemembered);
    EXPECT_FALSE(store_.use(nonces.front(), 1, here)) << "a forgotten nonce must not be usable again";
    EXPECT_TRUE(store_.use(nonces.back(), 2, here));
}

}  // namespace
}  // namespace refhost
