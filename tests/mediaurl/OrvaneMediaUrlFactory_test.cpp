#include "mediaurl/OrvaneMediaUrlFactory.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/RefCountInspector.h"

TEST(OrvaneMediaUrlFactory, MakesASeparateCodecWithDefaultsForEachCall)
{
    OrvaneMediaUrlFactory factory;
    SafePointer<IMediaUrl> first;
    SafePointer<IMediaUrl> second;
    EXPECT_EQ(0, factory.createMediaUrl(first));
    EXPECT_EQ(0, factory.createMediaUrl(second));
    EXPECT_NE(first.operator->(), second.operator->());
    EXPECT_EQ("", second->objMediaUrlParam.getMediaUrlPrefix());
    EXPECT_EQ(0, second->objMediaUrlParam.getCameraID());
    EXPECT_EQ(1, second->getThirdPlatType());
}

TEST(OrvaneMediaUrlFactory, GivesTheCallerTheOnlyHandle)
{
    OrvaneMediaUrlFactory factory;
    SafePointer<IMediaUrl> codec;
    factory.createMediaUrl(codec);
    EXPECT_EQ(1, RefCountInspector::holders(codec.operator->()));
}

TEST(OrvaneMediaUrlFactory, ReleasesWhatTheHandleHeld)
{
    OrvaneMediaUrlFactory factory;
    SafePointer<IMediaUrl> codec;
    factory.createMediaUrl(codec);
    const std::size_t before = FakeHost::instance().recordsInUse();
    factory.createMediaUrl(codec);
    EXPECT_EQ(before, FakeHost::instance().recordsInUse());
}

TEST(OrvaneMediaUrlFactory, TakesItsLockUnderTheUnitsName)
{
    OrvaneMediaUrlFactory factory;
    SafePointer<IMediaUrl> codec;
    FakeHost& host = FakeHost::instance();
    host.recordLocks(true);
    host.clearCalls();
    factory.createMediaUrl(codec);
    host.recordLocks(false);
    const std::vector<std::string> calls = host.calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(0u, calls[0].find("OVMutex::Lock(OrvaneMediaUrlFactory, ")) << calls[0];
    EXPECT_EQ("OVMutex::Unlock(OVMutexManager.h, 71)", calls[1]);
}

TEST(OrvaneMediaUrlFactory, ServesManyThreadsAtOnce)
{
    const std::size_t before = FakeHost::instance().recordsInUse();
    {
        OrvaneMediaUrlFactory factory;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
        {
            threads.emplace_back(
                [&factory, i]
                {
                    for (int iteration = 0; iteration < 300; ++iteration)
                    {
                        SafePointer<IMediaUrl> codec;
                        factory.createMediaUrl(codec);
                        codec->objMediaUrlParam.setCameraID(i);
                        EXPECT_EQ("orv/live/" + std::to_string(i) + "/0", codec->toMediaUrl());
                    }
                });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
    }
    EXPECT_EQ(before, FakeHost::instance().recordsInUse());
}
