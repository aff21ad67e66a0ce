#include "mediaurl/MediaUrlFactoryMap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/CapturedOutput.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/ForeignRecord.h"
#include "tests/fakehost/RefCountInspector.h"

namespace
{

// A factory that creates nothing and prints to standard error under how many locks it is deleted.
class NamedFactory : public IMediaUrlFactory
{
public:
    explicit NamedFactory(int number, bool talkative = false) : number_(number), talkative_(talkative) {}
    ~NamedFactory() noexcept(false) override
    {
        ++deleted();
        if (talkative_)
        {
            std::fprintf(stderr, "factory %d deleted under %d lock", number_, FakeHost::locksHeldHere());
        }
    }
    int createMediaUrl(SafePointer<IMediaUrl>&) override
    {
        return number_;
    }
    static std::atomic<int>& deleted()
    {
        static std::atomic<int> count{0};
        return count;
    }

private:
    int number_;
    bool talkative_;
};

int numberOf(const SafePointer<IMediaUrlFactory>& factory)
{
    SafePointer<IMediaUrl> none;
    return factory->createMediaUrl(none);
}

class MediaUrlFactoryMapTest : public testing::Test
{
protected:
    ~MediaUrlFactoryMapTest() noexcept override {}

    void TearDown() override
    {
        std::vector<int> names;
        map_->getFactoryNames(names);
        for (int name : names)
        {
            map_->unregisterFactory(name);
        }
    }

    void add(int type, int number)
    {
        map_->registerFactory(type, SafePointer<IMediaUrlFactory>(new NamedFactory(number)));
    }

    SafePointer<MediaUrlFactoryMap> map_ = MediaUrlFactoryMap::getInstance();
};

}  // namespace

TEST(MediaUrlFactoryMapFirst, ConcurrentFirstCallsYieldOneRegistry)
{
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    std::vector<const void*> found(4);
    for (const void*& result : found)
    {
        threads.emplace_back(
            [&]
            {
                while (!go)
                {
                    std::this_thread::yield();
                }
                result = MediaUrlFactoryMap::getInstance().operator->();
            });
    }
    go = true;
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(1u, std::set<const void*>(found.begin(), found.end()).size());
    EXPECT_EQ(1, RefCountInspector::holders(found.front())) << "only the static handle is left";
}

TEST_F(MediaUrlFactoryMapTest, EveryCallOfGetInstanceIsOneMoreHandle)
{
    const int before = RefCountInspector::holders(map_.operator->());
    const SafePointer<MediaUrlFactoryMap> another = MediaUrlFactoryMap::getInstance();
    EXPECT_EQ(before + 1, RefCountInspector::holders(map_.operator->()));
    EXPECT_EQ(map_.operator->(), another.operator->());
}

TEST_F(MediaUrlFactoryMapTest, LookupOfUnknownTypeLeavesAnEmptyHandleEmpty)
{
    SafePointer<IMediaUrlFactory> factory;
    EXPECT_FALSE(map_->lookup(1, factory));
    EXPECT_TRUE(factory.isEmpty());
}

TEST_F(MediaUrlFactoryMapTest, LookupOfUnknownTypeLeavesAHoldingHandleUnchanged)
{
    SafePointer<IMediaUrlFactory> factory(new NamedFactory(5));
    EXPECT_FALSE(map_->lookup(1, factory));
    EXPECT_EQ(5, numberOf(factory));
}

TEST_F(MediaUrlFactoryMapTest, LookupReplacesWhatTheHandleHeld)
{
    add(1, 11);
    const int deletedBefore = NamedFactory::deleted();
    SafePointer<IMediaUrlFactory> factory(new NamedFactory(5));
    EXPECT_TRUE(map_->lookup(1, factory));
    EXPECT_EQ(11, numberOf(factory));
    EXPECT_EQ(deletedBefore + 1, NamedFactory::deleted());
    EXPECT_EQ(2, RefCountInspector::holders(factory.operator->()));
}

TEST_F(MediaUrlFactoryMapTest, FirstRegistrationOfATypeStays)
{
    add(1, 11);
    const int deletedBefore = NamedFactory::deleted();
    add(1, 12);
    EXPECT_EQ(deletedBefore + 1, NamedFactory::deleted()) << "the second factory is dropped";
    SafePointer<IMediaUrlFactory> factory;
    EXPECT_TRUE(map_->lookup(1, factory));
    EXPECT_EQ(11, numberOf(factory));
}

TEST_F(MediaUrlFactoryMapTest, UnregisteringAnUnknownTypeChangesNothing)
{
    add(1, 11);
    map_->unregisterFactory(2);
    SafePointer<IMediaUrlFactory> factory;
    EXPECT_TRUE(map_->lookup(1, factory));
}

TEST_F(MediaUrlFactoryMapTest, UnregisteredTypeIsNotFoundAndItsFactoryIsReleased)
{
    add(1, 11);
    const int deletedBefore = NamedFactory::deleted();
    map_->unregisterFactory(1);
    EXPECT_EQ(deletedBefore + 1, NamedFactory::deleted());
    SafePointer<IMediaUrlFactory> factory;
    EXPECT_FALSE(map_->lookup(1, factory));
}

TEST_F(MediaUrlFactoryMapTest, FactoryThatSomebodyHoldsOutlivesItsRegistration)
{
    add(1, 11);
    SafePointer<IMediaUrlFactory> factory;
    ASSERT_TRUE(map_->lookup(1, factory));
    map_->unregisterFactory(1);
    EXPECT_EQ(11, numberOf(factory));
}

TEST_F(MediaUrlFactoryMapTest, TypeCanBeRegisteredAgainAfterItWasUnregistered)
{
    add(1, 11);
    map_->unregisterFactory(1);
    add(1, 12);
    SafePointer<IMediaUrlFactory> factory;
    EXPECT_TRUE(map_->lookup(1, factory));
    EXPECT_EQ(12, numberOf(factory));
}

TEST_F(MediaUrlFactoryMapTest, NamesAreAppendedInAscendingOrderAndTheResultIsTheRegistrysSize)
{
    add(3, 13);
    add(1, 11);
    std::vector<int> names{7};
    EXPECT_EQ(2, map_->getFactoryNames(names));
    EXPECT_EQ((std::vector<int>{7, 1, 3}), names);
}

TEST_F(MediaUrlFactoryMapTest, NamesOfAnEmptyRegistryAreNone)
{
    std::vector<int> names{7};
    EXPECT_EQ(0, map_->getFactoryNames(names));
    EXPECT_EQ((std::vector<int>{7}), names);
}

TEST_F(MediaUrlFactoryMapTest, AnEmptyHandleCannotBeRegistered)
{
    const SafePointer<IMediaUrlFactory> empty;
    CapturedOutput output;
    EXPECT_THROW(map_->registerFactory(1, empty), OVRuntimeError);
    EXPECT_EQ("SafePointer Report:16IMediaUrlFactory Construct from NULL <T>pointer\n", output.text());
    std::vector<int> names;
    EXPECT_EQ(0, map_->getFactoryNames(names));
}

TEST_F(MediaUrlFactoryMapTest, MisuseThatTheReleaseOfAnUnregisteredFactoryFindsIsThrownAndTheEntryIsGone)
{
    auto* const bad = new NamedFactory(12);
    add(1, 11);
    map_->registerFactory(2, SafePointer<IMediaUrlFactory>(bad));
    add(3, 13);
    {
        const ForeignRecord foreign(bad);
        CapturedOutput output;
        try
        {
            map_->unregisterFactory(2);
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const OVRuntimeError& error)
        {
            EXPECT_STREQ("not valid pointer in dec_reference", error.what());
        }
        EXPECT_EQ("", output.text());
        EXPECT_TRUE(foreign.isLocked()) << "such a record is not touched again";
        EXPECT_EQ(0, FakeHost::locksHeldHere()) << "the registry's lock was given back";
        map_->unregisterFactory(2);
    }
    std::vector<int> names;
    EXPECT_EQ(2, map_->getFactoryNames(names));
    EXPECT_EQ((std::vector<int>{1, 3}), names);
    ForeignRecord::releaseAbandoned<IMediaUrlFactory>(bad);
}

TEST_F(MediaUrlFactoryMapTest, EveryOperationTakesTheLockOnceUnderTheUnitsName)
{
    SafePointer<IMediaUrlFactory> factory(new NamedFactory(1));
    std::vector<int> names;
    FakeHost& host = FakeHost::instance();
    host.recordLocks(true);
    host.clearCalls();
    map_->registerFactory(1, factory);
    map_->lookup(1, factory);
    map_->lookup(2, factory);
    map_->getFactoryNames(names);
    map_->unregisterFactory(1);
    host.recordLocks(false);
    const std::vector<std::string> calls = host.calls();
    ASSERT_EQ(10u, calls.size());
    for (std::size_t i = 0; i < calls.size(); i += 2)
    {
        EXPECT_EQ(0u, calls[i].find("OVMutex::Lock(MediaUrlFactoryMap, ")) << calls[i];
        EXPECT_EQ("OVMutex::Unlock(OVMutexManager.h, 71)", calls[i + 1]);
    }
}

TEST_F(MediaUrlFactoryMapTest, OperationsOfManyThreadsAreSerialised)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [this, i]
            {
                for (int iteration = 0; iteration < 300; ++iteration)
                {
                    add(i, i);
                    SafePointer<IMediaUrlFactory> factory;
                    EXPECT_TRUE(map_->lookup(i, factory));
                    EXPECT_EQ(i, numberOf(factory));
                    map_->unregisterFactory(i);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    std::vector<int> names;
    EXPECT_EQ(0, map_->getFactoryNames(names));
}

TEST(MediaUrlFactoryMapAtExit, ReleasesItsFactoriesUnderItsLock)
{
    EXPECT_EXIT(
        {
            MediaUrlFactoryMap::getInstance()->registerFactory(
                1, SafePointer<IMediaUrlFactory>(new NamedFactory(21, true)));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "factory 21 deleted under 1 lock");
}

TEST(MediaUrlFactoryMapAtExit, ThrowsTheMisuseThatItFindsAndReleasesTheOtherFactories)
{
    EXPECT_EXIT(
        {
            const SafePointer<MediaUrlFactoryMap> map = MediaUrlFactoryMap::getInstance();
            auto* const bad = new NamedFactory(22);
            map->registerFactory(1, SafePointer<IMediaUrlFactory>(new NamedFactory(21)));
            map->registerFactory(2, SafePointer<IMediaUrlFactory>(bad));
            map->registerFactory(3, SafePointer<IMediaUrlFactory>(new NamedFactory(23, true)));
            const ForeignRecord foreign(bad);
            try
            {
                // As its last handle does it.
                map.operator->()->~MediaUrlFactoryMap();
            }
            catch (const OVRuntimeError& error)
            {
                std::fprintf(stderr, ", %s", error.what());
                std::_Exit(FakeHost::locksHeldHere());
            }
            std::_Exit(100);
        },
        testing::ExitedWithCode(0), "factory 23 deleted under 0 lock, not valid pointer in dec_reference");
}
