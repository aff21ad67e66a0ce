#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <string>
#include <vector>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "hostapi/playback/OVAVPlayBackSource.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrl.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlayBack.h"
#include "support/OVRuntimeError.h"
#include "support/function.h"
#include "tests/abi/Slot.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakeMediaPlayer.h"
#include "tests/fakehost/RefCountInspector.h"

// Every operation here is called by its slot in its object's vtable.
namespace
{

int seven()
{
    return 7;
}

class Counter
{
public:
    int next()
    {
        return ++count_;
    }

private:
    int count_ = 40;
};

/// An output that records which of its operations ran.
class Output : public FakeMediaPlayer
{
public:
    explicit Output(bool& gone) : gone_(gone) {}
    ~Output() noexcept(false) override
    {
        gone_ = true;
    }

private:
    bool& gone_;
};

/// An object in memory of the test's: the destructor's first slot ends the object alone.
template <class T>
class Placed
{
public:
    Placed() : object_(new (memory_) T) {}

    void* base()
    {
        return object_;
    }

private:
    alignas(T) unsigned char memory_[sizeof(T)];
    T* object_;
};

/// Both of a destructor's slots: the first ends an object in memory of the caller's, the second frees it
/// too.
template <class T>
void expectBothDestructors(const char* partOfIt)
{
    FakeHost& host = FakeHost::instance();
    const int before = host.living(partOfIt);
    Placed<T> placed;
    EXPECT_LT(before, host.living(partOfIt));
    Slot<void()>(placed.base(), 0)();
    EXPECT_EQ(before, host.living(partOfIt));

    void* const object = new T;
    EXPECT_LT(before, host.living(partOfIt));
    Slot<void()>(object, 1)();
    EXPECT_EQ(before, host.living(partOfIt));
}

}  // namespace

TEST(Slots, CodecOperationsAreWhereHostsCallThem)
{
    OrvaneMediaUrl codec;
    IMediaUrl* const object = &codec;
    const std::string live = "rtsp://host/orv/live/12/3";
    const std::string playback = "rtsp://host/orv/playback/4_100_3700";
    EXPECT_EQ(0, Slot<int(const std::string&)>(object, 2)(live));
    EXPECT_EQ("orv/live/12/3", Slot<std::string()>(object, 3)());
    EXPECT_EQ(-8, Slot<int(const std::string&)>(object, 2)(playback));
    EXPECT_EQ(0, Slot<int(const std::string&)>(object, 4)(playback)) << "it takes any text";
    EXPECT_EQ("", Slot<std::string()>(object, 5)());
    EXPECT_EQ("orv/live", object->objMediaUrlParam.getMediaUrlPrefix()) << "and writes nothing";
    EXPECT_EQ(0, Slot<int(const std::string&)>(object, 6)(playback));
    EXPECT_EQ("orv/playback/4_100_3700", Slot<std::string()>(object, 7)());
    EXPECT_EQ(1, Slot<int()>(object, 8)());
}

TEST(Slots, CodecFactoryMakesACodecWhereHostsCallIt)
{
    OrvaneMediaUrlFactory factory;
    SafePointer<IMediaUrl> codec;
    EXPECT_EQ(0, Slot<int(SafePointer<IMediaUrl>&)>(static_cast<IMediaUrlFactory*>(&factory), 2)(codec));
    EXPECT_EQ(1, codec->getThirdPlatType());
    EXPECT_STREQ("9IMediaUrl", RefCountInspector::lastRetrievedType());
}

TEST(Slots, HandlersGetTheErrorsMessage)
{
    OVRuntimeError error("message");
    EXPECT_STREQ("message", Slot<const char*()>(static_cast<std::exception*>(&error), 2)());
}

TEST(Slots, CallablesAreInvokedWhereThreadsInvokeThem)
{
    using Bound = bind_funcobj0<int, Counter>;
    Counter counter;
    function_obj<int, int (*)()> free(&seven);
    function_obj<int, Bound> bound(Bound{&Counter::next, &counter});
    EXPECT_EQ(7, Slot<int()>(static_cast<function_obj_base<int>*>(&free), 2)());
    EXPECT_EQ(41, Slot<int()>(static_cast<function_obj_base<int>*>(&bound), 2)());
}

TEST(Slots, OutputOperationsAreWhereTheManagerCallsThem)
{
    FakeHost& host = FakeHost::instance();
    host.reset();
    bool gone = false;
    IMediaPlayer* const output = new Output(gone);
    DeviceInfoEx device;
    device.setDeviceID("device");
    const std::uint8_t samples[3] = {};
    Slot<void(const DeviceInfoEx&)>(output, 2)(device);
    Slot<void(int)>(output, 3)(8);
    EXPECT_EQ(0, Slot<int()>(output, 4)());
    EXPECT_EQ(0, (Slot<int(const std::uint8_t*, std::size_t)>(output, 5)(samples, sizeof samples)));
    Slot<void()>(output, 6)();
    EXPECT_EQ(
        (std::vector<std::string>{"IMediaPlayer::setDeviceInfo(device)", "IMediaPlayer::setEncoderType(8)",
                                  "IMediaPlayer::open()", "IMediaPlayer::play(3)", "IMediaPlayer::close()"}),
        host.calls());
    Slot<void()>(output, 1)();
    EXPECT_TRUE(gone);
}

TEST(Slots, DestructorsTakeTheFirstTwoPlaces)
{
    // Each of them holds a lock of the host's, or a handle to an object of the host's.
    expectBothDestructors<OrvaneMediaUrlFactory>("OVMutex");
    expectBothDestructors<OVPlayBack>("OVMutex");
}

TEST(Slots, HandlesReleaseWhatTheyHoldByBothDestructors)
{
    IConnection* const object = new FakeConnection(1);
    const SafePointer<IConnection> kept(object);
    alignas(SafePointer<IConnection>) unsigned char memory[sizeof(SafePointer<IConnection>)];
    BaseSafePointer* const placed = new (memory) SafePointer<IConnection>(kept);
    BaseSafePointer* const allocated = new SafePointer<IConnection>(kept);
    EXPECT_EQ(3, RefCountInspector::holders(object));
    Slot<void()>(placed, 0)();
    EXPECT_EQ(2, RefCountInspector::holders(object));
    Slot<void()>(allocated, 1)();
    EXPECT_EQ(1, RefCountInspector::holders(object));
}

TEST(Slots, CallablesReleaseWhatTheyHoldByBothDestructors)
{
    function_obj_base<int>* const object = new function_obj<int, int (*)()>(&seven);
    const SafePointer<function_obj_base<int>> kept(object);
    alignas(function<int>) unsigned char memory[sizeof(function<int>)];
    function<int>* const placed = new (memory) function<int>(object);
    function<int>* const allocated = new function<int>(object);
    EXPECT_EQ(3, RefCountInspector::holders(object));
    Slot<void()>(placed, 0)();
    EXPECT_EQ(2, RefCountInspector::holders(object));
    Slot<void()>(allocated, 1)();
    EXPECT_EQ(1, RefCountInspector::holders(object));
}
