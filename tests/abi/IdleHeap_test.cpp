#include <gtest/gtest.h>
#include <malloc.h>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "live/OVMulticastLiveControlerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlaybackController.h"
#include "playback/OVPlaybackControllerFactory.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeHost.h"

namespace
{

/// Bytes of heap that the library uses before anybody streams, with the locks, counts and threads of the fake host.
class IdleHeap : public testing::Test
{
protected:
    void SetUp() override
    {
        FakeHost::instance().recordCalls(false);
        // The fake host's own tables grow with the first object of a kind.
        const OVMutex mutex;
        const SafePointer<IConnection> handle(new FakeConnection(1));
        const OVPlaybackController playback;
    }

    static std::size_t inUse()
    {
        return mallinfo2().uordblks;
    }

    template <class Factory>
    static void comeAndGo()
    {
        Factory factory;
        factory.setThirdPlatType(1);
        SafePointer<IRTSPController> controller;
        factory.createMedia("rtsp://host/orv/nothing", controller, true);
    }

    static void allComeAndGo()
    {
        comeAndGo<OVLiveControllerFactory>();
        comeAndGo<OVLiveControllerFactory2>();
        comeAndGo<OVMulticastLiveControlerFactory>();
        comeAndGo<OVPlaybackControllerFactory>();
    }
};

}  // namespace

TEST_F(IdleHeap, RegistryAndManagerTakeLittle)
{
    // Kilobytes would be a buffer, or a thread that was started.
    const std::size_t little = 320 * sizeof(void*);
    const std::size_t before = inUse();
    MediaUrlFactoryMap::getInstance();
    OVAudioBackDispatcherMgr::getInstance();
    const std::size_t after = inUse();
    EXPECT_LT(before, after);
    EXPECT_GE(before + little, after);
}

TEST_F(IdleHeap, FactoriesAndControllersThatCameAndWentLeaveNothing)
{
    allComeAndGo();
    const std::size_t before = inUse();
    allComeAndGo();
    EXPECT_EQ(before, inUse());
}
