#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "hostapi/live/LiveDispatcherMgr.h"
#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "hostapi/playback/OVAVPlayBackSource.h"
#include "hostapi/playback/RTPPlayBackDispacher.h"
#include "hostapi/playback/RTPPlayBackDispacherMgr.h"
#include "live/IRTSPController.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "support/OVMutexManager.h"
#include "support/function.h"
#include "tests/CapturedOutput.h"
#include "tests/abi/Layout.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/RefCountInspector.h"

namespace
{

/// A size on a 32-bit device and on a 64-bit machine.
constexpr std::size_t bytes(std::size_t onDevice, std::size_t onThisMachine)
{
    return sizeof(void*) == 4 ? onDevice : onThisMachine;
}

struct HandleMirror
{
    void* table;
    void* object;
    ref_count* record;
};

using BoundRun = bind_funcobj0<int, OVAudioBackDispatcherMgr>;
using FreeCallable = function_obj<int, int (*)()>;
using BoundCallable = function_obj<int, BoundRun>;

int nothing()
{
    return 0;
}

/// The name of T in the error of a misused handle to a T.
template <class T>
std::string nameInMessages()
{
    const SafePointer<T> empty;
    CapturedOutput output;
    try
    {
        empty.operator->();
    }
    catch (const OVRuntimeError& error)
    {
        const std::string before = "SafePointer Report:";
        const std::string behind = " Use NULL pointer ->";
        std::string line = error.what();
        EXPECT_EQ(line + "\n", output.text());
        if (line.compare(0, before.size(), before) == 0 && line.size() > before.size() + behind.size())
        {
            return line.substr(before.size(), line.size() - before.size() - behind.size());
        }
        return line;
    }
    return "(nothing thrown)";
}

}  // namespace

TEST(HandleLayout, HandleHoldsObjectThenRecord)
{
    EXPECT_EQ(bytes(4, 8), sizeof(BaseSafePointer));
    EXPECT_EQ(bytes(12, 24), sizeof(SafePointer<IConnection>));
    IConnection* const object = new FakeConnection(1);
    const SafePointer<IConnection> handle(object);
    EXPECT_EQ(object, Layout::at(&handle, &HandleMirror::object));
    EXPECT_EQ(RefCountInspector::recordOf(object), Layout::at(&handle, &HandleMirror::record));
    EXPECT_EQ(object, Layout::at<IConnection*>(&handle, bytes(4, 8)));
    EXPECT_EQ(RefCountInspector::recordOf(object), Layout::at<ref_count*>(&handle, bytes(8, 16)));
}

TEST(HandleLayout, EmptyHandleHoldsTwoNulls)
{
    const SafePointer<IConnection> empty;
    EXPECT_EQ(nullptr, Layout::at(&empty, &HandleMirror::object));
    EXPECT_EQ(nullptr, Layout::at(&empty, &HandleMirror::record));
}

TEST(HandleLayout, ErrorHoldsItsMessageAlone)
{
    EXPECT_EQ(sizeof(std::exception) + sizeof(std::string), sizeof(OVRuntimeError));
    const OVRuntimeError error("message");
    EXPECT_EQ("message", Layout::at<std::string>(&error, bytes(4, 8)));
}

TEST(HandleLayout, GuardHoldsItsMutexAlone)
{
    EXPECT_EQ(bytes(4, 8), sizeof(OVMutexManager));
    EXPECT_FALSE(std::is_copy_constructible<OVMutexManager>::value);
    EXPECT_FALSE(std::is_move_constructible<OVMutexManager>::value);
    EXPECT_FALSE(std::is_copy_assignable<OVMutexManager>::value);
    EXPECT_FALSE(std::is_polymorphic<OVMutexManager>::value);
    OVMutex mutex;
    const OVMutexManager guard(mutex, "file", 1);
    EXPECT_EQ(&mutex, Layout::at<OVMutex*>(&guard, 0));
}

TEST(HandleLayout, CallablesHoldOneFieldEach)
{
    EXPECT_FALSE(std::is_polymorphic<BoundRun>::value);
    EXPECT_EQ(0u, offsetof(BoundRun, member));
    EXPECT_EQ(bytes(8, 16), offsetof(BoundRun, object));
    EXPECT_EQ(bytes(12, 24), sizeof(BoundRun));
    EXPECT_EQ(bytes(4, 8), sizeof(function_obj_base<int>));
    EXPECT_EQ(bytes(8, 16), sizeof(FreeCallable));
    EXPECT_EQ(bytes(16, 32), sizeof(BoundCallable));
    EXPECT_EQ(bytes(16, 32), sizeof(function<int>));
    EXPECT_TRUE(std::has_virtual_destructor<function<int>>::value);

    FreeCallable* const free = new FreeCallable(&nothing);
    EXPECT_EQ(&nothing, Layout::at<int (*)()>(free, bytes(4, 8)));
    const function<int> callable(free);
    const void* const held = static_cast<function_obj_base<int>*>(free);
    EXPECT_EQ(held, Layout::at<const void*>(&callable, bytes(8, 16))) << "in its handle";

    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    const BoundCallable bound(BoundRun{&OVAudioBackDispatcherMgr::run, manager.operator->()});
    EXPECT_EQ(manager.operator->(), Layout::at<OVAudioBackDispatcherMgr*>(&bound, bytes(12, 24)));
}

TEST(HandleLayout, BasesStandFirstSoThatHandlesToThemShareTheCount)
{
    GThread* const thread =
        new GThread(function<int>(new FreeCallable(&nothing)), "name",
                    function<int>(new FreeCallable(&nothing)), function<int>(new FreeCallable(&nothing)));
    const SafePointer<GThread> threadHandle(thread);
    const void* const threadAddress = thread;
    EXPECT_EQ(threadAddress, static_cast<OVThread*>(thread));

    OVAVPlayBackSource* const source = new OVAVPlayBackSource;
    const SafePointer<OVAVPlayBackSource> handle(source);
    const SafePointer<IMediaSource> base(handle);
    const void* const address = source;
    EXPECT_EQ(address, base.operator->());
    EXPECT_EQ(2, RefCountInspector::holders(source));
}

TEST(HandleLayout, MessagesNameTypesAsTheCompilerMarksThem)
{
    EXPECT_EQ("16IMediaUrlFactory", nameInMessages<IMediaUrlFactory>());
    EXPECT_EQ("18MediaUrlFactoryMap", nameInMessages<MediaUrlFactoryMap>());
    EXPECT_EQ("9IMediaUrl", nameInMessages<IMediaUrl>());
    EXPECT_EQ("15IRTSPController", nameInMessages<IRTSPController>());
    EXPECT_EQ("17LiveDispatcherMgr", nameInMessages<LiveDispatcherMgr>());
    EXPECT_EQ("22RTPStreamDispatcherMgr", nameInMessages<RTPStreamDispatcherMgr>());
    EXPECT_EQ("23RTPPlayBackDispacherMgr", nameInMessages<RTPPlayBackDispacherMgr>());
    EXPECT_EQ("20RTPPlayBackDispacher", nameInMessages<RTPPlayBackDispacher>());
    EXPECT_EQ("12IMediaSource", nameInMessages<IMediaSource>());
    EXPECT_EQ("18OVAVPlayBackSource", nameInMessages<OVAVPlayBackSource>());
    EXPECT_EQ("25MulticastSessionParameter", nameInMessages<MulticastSessionParameter>());
    EXPECT_EQ("15AudioDispatcher", nameInMessages<AudioDispatcher>());
    EXPECT_EQ("12IMediaPlayer", nameInMessages<IMediaPlayer>());
    EXPECT_EQ("7GThread", nameInMessages<GThread>());
    EXPECT_EQ("11IConnection", nameInMessages<IConnection>());
    EXPECT_EQ("17function_obj_baseIiE", nameInMessages<function_obj_base<int>>());
    EXPECT_EQ("24OVAudioBackDispatcherMgr", nameInMessages<OVAudioBackDispatcherMgr>());
}
