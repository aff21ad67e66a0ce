#include "refhost/rtp/multicast/MulticastPool.h"

#include <gtest/gtest.h>

#include <thread>

namespace refhost
{
namespace
{

MulticastPool::Settings settings(const char* range)
{
    return {*MulticastRange::parse(range), 5004, {}};
}

TEST(MulticastPool, EachStreamHasAGroupAndPortsOfItsOwn)
{
    MulticastPool pool(settings("239.255.42.0/24"));
    const auto first = pool.take({1, 0});
    const auto second = pool.take({1, 1});
    ASSERT_TRUE(first && second);
    EXPECT_EQ("239.255.42.0", first->addressText());
    EXPECT_EQ(5004, first->port);
    EXPECT_EQ("239.255.42.1", second->addressText());
    EXPECT_EQ(5008, second->port);
    EXPECT_EQ(2U, pool.taken());
}

TEST(MulticastPool, OneStreamsLeaseIsShared)
{
    MulticastPool pool(settings("239.255.42.0/24"));
    const auto one = pool.take({1, 0});
    const auto other = pool.take({1, 0});
    EXPECT_EQ(one, other);
    EXPECT_EQ(1U, pool.taken());
}

TEST(MulticastPool, TheLastHandleFreesTheGroup)
{
    MulticastPool pool(settings("239.255.42.7"));
    auto lease = pool.take({1, 0});
    auto again = lease;
    EXPECT_EQ(nullptr, pool.take({1, 1}));
    lease.reset();
    EXPECT_EQ(nullptr, pool.take({1, 1}));
    again.reset();
    EXPECT_EQ(0U, pool.taken());
    const auto other = pool.take({1, 1});
    ASSERT_TRUE(other);
    EXPECT_EQ("239.255.42.7", other->addressText());
    EXPECT_EQ(nullptr, pool.take({1, 0}));
}

TEST(MulticastPool, AStreamComesBackToItsGroupWhileNobodyNeedsIt)
{
    MulticastPool pool(settings("239.255.42.0/24"));
    pool.take({1, 0});
    pool.take({1, 1});
    EXPECT_EQ("239.255.42.1", pool.take({1, 1})->addressText());
    EXPECT_EQ("239.255.42.0", pool.take({1, 0})->addressText());
}

TEST(MulticastPool, PreviewNamesTheGroupThatIsTakenLater)
{
    MulticastPool pool(settings("239.255.42.0/24"));
    const auto preview = pool.preview({1, 1});
    pool.take({1, 0});
    EXPECT_EQ(0U, pool.taken());
    ASSERT_TRUE(preview);
    EXPECT_EQ(*preview, *pool.take({1, 1}));
}

TEST(MulticastPool, APreviewOfAFullPoolIsNothing)
{
    MulticastPool pool(settings("239.255.42.7"));
    const auto lease = pool.take({1, 0});
    EXPECT_FALSE(pool.preview({1, 1}));
    EXPECT_TRUE(pool.preview({1, 0}));
}

TEST(MulticastPool, AFixedGroupIsItsStreamsAlone)
{
    auto fixed = settings("239.255.42.0/31");
    fixed.fixed[{2, 0}] = *MulticastGroup::parse("239.255.42.0:6000");
    MulticastPool pool(fixed);
    const auto first = pool.take({1, 0});
    ASSERT_TRUE(first);
    EXPECT_EQ("239.255.42.1", first->addressText());
    EXPECT_EQ(nullptr, pool.take({1, 1}));
    EXPECT_EQ(6000, pool.take({2, 0})->port);
}

TEST(MulticastPool, PortsOfFixedGroupsAreNotThePools)
{
    auto fixed = settings("239.255.42.0/24");
    fixed.fixed[{2, 0}] = *MulticastGroup::parse("239.1.2.3:5006");
    fixed.fixed[{2, 1}] = *MulticastGroup::parse("239.1.2.4:5016");
    MulticastPool pool(fixed);
    EXPECT_EQ(5010, pool.take({1, 0})->port) << "5004 to 5007 overlap the first fixed group";
    EXPECT_EQ(5020, pool.take({1, 1})->port);
    EXPECT_EQ(5024, pool.take({1, 2})->port);
}

TEST(MulticastPool, ThePortsEndTheRangeToo)
{
    auto last = settings("239.255.42.0/24");
    last.port = 65528;
    MulticastPool pool(last);
    const auto first = pool.take({1, 0});
    const auto second = pool.take({1, 1});
    EXPECT_TRUE(first && second);
    EXPECT_EQ(65532, second->port);
    EXPECT_EQ(nullptr, pool.take({1, 2}));
}

TEST(MulticastPool, ManyThreadsNeverShareAGroup)
{
    MulticastPool pool(settings("239.255.42.0/30"));
    std::vector<std::thread> threads;
    for (int camera = 0; camera < 4; ++camera)
    {
        threads.emplace_back(
            [&pool, camera]
            {
                for (int i = 0; i < 200; ++i)
                {
                    EXPECT_TRUE(pool.take({camera, 0}));
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(0U, pool.taken());
}

}  // namespace
}  // namespace refhost
