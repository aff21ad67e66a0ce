#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "live/OVMulticastLiveControlerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlaybackControllerFactory.h"
#include "tests/abi/ControllerByPlace.h"
#include "tests/fakehost/FakeConnection.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakeLiveSessions.h"

// Every operation here is called by its slot in its object's vtable.
namespace
{

using Lines = std::vector<std::string>;

/// A factory of controllers, also called by slot, with the device's own codec under a platform type of its own.
template <class Factory>
class ControllerSlots
{
public:
    explicit ControllerSlots(const char* url)
    {
        MediaUrlFactoryMap::getInstance()->registerFactory(
            31, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
        Factory factory;
        factory.setThirdPlatType(31);
        using CreateMedia = Slot<int(const std::string&, SafePointer<IRTSPController>&, bool)>;
        EXPECT_EQ(0, CreateMedia(static_cast<IRTSPControllerFactory*>(&factory), 2)(url, controller_, true));
        FakeHost::instance().reset();
    }

    ~ControllerSlots()
    {
        MediaUrlFactoryMap::getInstance()->unregisterFactory(31);
        FakeLiveSessions::clear();
    }

    ControllerByPlace controller() const
    {
        return ControllerByPlace(controller_.operator->());
    }

    /// The host calls since the last time.
    static Lines hostCalls()
    {
        Lines calls = FakeHost::instance().calls();
        FakeHost::instance().clearCalls();
        return calls;
    }

    /// The last of them; empty when there is none.
    static std::string hostCall()
    {
        const Lines calls = hostCalls();
        return calls.empty() ? std::string() : calls.back();
    }

private:
    SafePointer<IRTSPController> controller_;
};

const std::string session = "session";
const std::string track = "trackID=0";

/// The host calls of a live stream's methods, as far as they differ between controllers.
struct Delivery
{
    const char* description;
    std::string dispatcher;
    std::string ids;
    const char* connect;
    const char* end;
};

template <class Factory>
void expectLiveOperationsInTheirPlaces(const char* url, const Delivery& delivery)
{
    const ControllerSlots<Factory> made(url);
    const ControllerByPlace controller = made.controller();
    const auto method = [&](const char* operation)
    { return delivery.dispatcher + "::" + operation + "(" + delivery.ids + ")"; };

    MediaInfo info;
    EXPECT_EQ(0, controller.getMediaInfo(info));
    EXPECT_EQ(delivery.description, info.mediaUrl);
    EXPECT_EQ(0, controller.mediaInit());
    EXPECT_EQ(0, controller.setup(session, track, SafePointer<IConnection>(new FakeConnection(1))));
    EXPECT_EQ(delivery.connect, made.hostCall());
    EXPECT_EQ(0, controller.play(session, track));
    EXPECT_EQ(method("play"), made.hostCall());
    EXPECT_EQ(0, controller.pause(session, track));
    EXPECT_EQ(method("pause"), made.hostCall());
    int ssrc = 0;
    EXPECT_EQ(0, controller.getTrackSSRC(session, track, ssrc));
    EXPECT_EQ(method("getTrackSSRC"), made.hostCall());
    EXPECT_NE(0, ssrc);
    EXPECT_EQ(0, controller.stop(session, track));
    EXPECT_EQ(method(delivery.end), made.hostCall());
}

/// Operations without meaning for a live stream: the same result everywhere, and no host call.
template <class Factory>
void expectLiveAnswersInTheirPlaces(const char* url)
{
    const ControllerSlots<Factory> made(url);
    const ControllerByPlace controller = made.controller();
    double start = 0;
    double end = 0;
    EXPECT_EQ(0, controller.getCurPlayRange(session, track, start, end));
    EXPECT_EQ(-100.0, start);
    EXPECT_EQ(-99.0, end);
    start = end = 0;
    EXPECT_EQ(0, controller.correctPlayRange(session, track, 3, 4, start, end));
    EXPECT_EQ(-100.0, start);
    EXPECT_EQ(-99.0, end);
    bool connected = false;
    EXPECT_EQ(0, controller.getConnetionState(session, track, connected));
    EXPECT_TRUE(connected);
    RTPPacketInfo packet;
    packet.sequenceNumber = 9;
    EXPECT_EQ(0, controller.getCurRTPPacketInfo(session, track, packet));
    EXPECT_EQ(9, packet.sequenceNumber) << "it is left as it was";
    EXPECT_EQ(0, controller.setPlayRange(session, track, 1, 2, 3, true));
    EXPECT_EQ(0, controller.setPauseRange(session, track, 5));
    EXPECT_EQ(0, controller.setSpeed(session, track, 1, 2));
    controller.setRTCPFrequence(session, track, 5);
    EXPECT_EQ(Lines(), made.hostCalls());
}

template <class Factory>
int cameraOfSession(const char* url)
{
    GeneralSessionInfo info;
    info.setCameraID(99);
    EXPECT_EQ(0, ControllerSlots<Factory>(url).controller().getSessionInfo(info));
    return info.getCameraID();
}

const char* const liveUrl = "rtsp://host/orv/live/12/3";

}  // namespace

TEST(ControllerSlots, FirstLiveFormRunsWhatHostsCall)
{
    expectLiveOperationsInTheirPlaces<OVLiveControllerFactory>(
        liveUrl, {"orv/live/12/3", "RTPStreamDispatcherMgr", "12/3, session, trackID=0",
                  "RTPStreamDispatcherMgr::addRTPConnection(12/3, session, trackID=0, kind 1)",
                  "deleteRTPConnection"});
    expectLiveAnswersInTheirPlaces<OVLiveControllerFactory>(liveUrl);
    EXPECT_EQ(99, cameraOfSession<OVLiveControllerFactory>(liveUrl)) << "it is left as it was";
}

TEST(ControllerSlots, SecondLiveFormRunsWhatHostsCall)
{
    expectLiveOperationsInTheirPlaces<OVLiveControllerFactory2>(
        liveUrl,
        {"orv/live/12/3", "LiveDispatcherMgr", "session, trackID=0",
         "LiveDispatcherMgr::addSessionConnection(session, trackID=0, kind 1)", "deleteSessionConection"});
    expectLiveAnswersInTheirPlaces<OVLiveControllerFactory2>(liveUrl);
    EXPECT_EQ(99, cameraOfSession<OVLiveControllerFactory2>(liveUrl)) << "it is left as it was";
}

TEST(ControllerSlots, MulticastFormRunsWhatHostsCall)
{
    expectLiveAnswersInTheirPlaces<OVMulticastLiveControlerFactory>(liveUrl);
    EXPECT_EQ(0, cameraOfSession<OVMulticastLiveControlerFactory>(liveUrl));

    const ControllerSlots<OVMulticastLiveControlerFactory> made(liveUrl);
    const ControllerByPlace controller = made.controller();
    EXPECT_EQ(0, controller.setup(session, track, SafePointer<IConnection>(new FakeConnection(3))));
    made.hostCalls();
    EXPECT_EQ(0, controller.mediaInit());
    MediaInfo info;
    EXPECT_EQ(0, controller.getMediaInfo(info));
    EXPECT_EQ(2u, info.getAllSubMediaInfo().size());
    EXPECT_EQ(Lines(), made.hostCalls());
    EXPECT_EQ(0, controller.play(session, track));
    EXPECT_EQ("LiveDispatcherMgr::play(multicast 0-0, trackID=0)", made.hostCall());
    EXPECT_EQ(0, controller.pause(session, track));
    EXPECT_EQ("LiveDispatcherMgr::pause(multicast 0-0, trackID=0)", made.hostCall());
    int ssrc = 0;
    EXPECT_EQ(0, controller.getTrackSSRC(session, track, ssrc));
    EXPECT_NE(0, ssrc);
    EXPECT_EQ("LiveDispatcherMgr::getTrackSSRC(multicast 0-0, trackID=0)", made.hostCall());
    EXPECT_EQ(0, controller.stop(session, track));
    EXPECT_EQ("LiveDispatcherMgr::deleteMulticastSessionParam(multicast 0-0)", made.hostCall());
}

TEST(ControllerSlots, PlaybackRunsWhatHostsCall)
{
    const ControllerSlots<OVPlaybackControllerFactory> made("rtsp://host/orv/playback/12_100_3700");
    const ControllerByPlace controller = made.controller();
    const std::string manager = "RTPPlayBackDispacherMgr::";

    MediaInfo info;
    EXPECT_EQ(0, controller.getMediaInfo(info));
    EXPECT_EQ("orv/playback/12_100_3700", info.mediaUrl);
    GeneralSessionInfo sessionInfo;
    sessionInfo.setCameraID(99);
    EXPECT_EQ(0, controller.getSessionInfo(sessionInfo));
    EXPECT_EQ(99, sessionInfo.getCameraID());
    EXPECT_EQ(0, controller.mediaInit());
    double start = 0;
    double end = 0;
    EXPECT_EQ(0, controller.correctPlayRange(session, track, 30, 4000, start, end));
    EXPECT_EQ(30.0, start);
    EXPECT_EQ(3600.0, end);
    controller.setRTCPFrequence(session, track, 5);
    EXPECT_EQ(Lines(), made.hostCalls());

    EXPECT_EQ(0, controller.setup(session, track, SafePointer<IConnection>(new FakeConnection(1))));
    EXPECT_EQ(manager + "setup(session, trackID=0, kind 1)", made.hostCall());
    EXPECT_EQ(0, controller.play(session, track));
    EXPECT_EQ(manager + "play(session, trackID=0)", made.hostCall());
    EXPECT_EQ(0, controller.setPlayRange(session, track, 10.5, 20, 3, true));
    EXPECT_EQ(manager + "setPlayRange(session, trackID=0, 10.5, 20, 3, 1)", made.hostCall());
    EXPECT_EQ(0, controller.getCurPlayRange(session, track, start, end));
    EXPECT_EQ(manager + "getCurPlayRange(session, trackID=0)", made.hostCall());
    EXPECT_EQ(12.5, start);
    EXPECT_EQ(60.0, end);
    RTPPacketInfo packet;
    EXPECT_EQ(0, controller.getCurRTPPacketInfo(session, track, packet));
    EXPECT_EQ(manager + "getCurRTPPacketInfo(session, trackID=0)", made.hostCall());
    EXPECT_EQ(90000u, packet.rtpTimestamp);
    EXPECT_EQ(0, controller.pause(session, track));
    EXPECT_EQ(manager + "pause(session, trackID=0)", made.hostCall());
    EXPECT_EQ(0, controller.setPauseRange(session, track, 40.5));
    EXPECT_EQ(manager + "setPauseRange(session, trackID=0, 40.5)", made.hostCall());
    bool connected = false;
    EXPECT_EQ(0, controller.getConnetionState(session, track, connected));
    EXPECT_EQ(manager + "getConnectionState(session, trackID=0)", made.hostCall());
    EXPECT_TRUE(connected);
    EXPECT_EQ(0, controller.setSpeed(session, track, 2, 0.5));
    EXPECT_EQ(manager + "setSpeed(session, trackID=0, 2, 0.5)", made.hostCall());
    int ssrc = 0;
    EXPECT_EQ(0, controller.getTrackSSRC(session, track, ssrc));
    EXPECT_EQ(manager + "getTrackSSRC(session, trackID=0)", made.hostCall());
    EXPECT_NE(0, ssrc);
    EXPECT_EQ(0, controller.stop(session, track));
    EXPECT_EQ(manager + "stop(session, trackID=0)", made.hostCall());
}
