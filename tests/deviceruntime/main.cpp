// Runs a session of each kind on a runtime that offers what devices offer, and prints every deviation. Exits
// with 0 when there is none.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "live/OVMulticastLiveControlerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlayBack.h"
#include "playback/OVPlaybackControllerFactory.h"
#include "tests/deviceruntime/DeviceCalls.h"
#include "tests/deviceruntime/DeviceSettings.h"

namespace
{

constexpr int platform = 7;
const std::string session = "session";
int failures = 0;

struct Connection : IConnection
{
    explicit Connection(int kind) : IConnection(kind) {}
};

SafePointer<IConnection> connection(int kind)
{
    return SafePointer<IConnection>(new Connection(kind));
}

/// The device's output; the talk-back worker opens and closes it.
class Player : public IMediaPlayer
{
public:
    void setDeviceInfo(const DeviceInfoEx&) override {}
    void setEncoderType(int) override {}
    int open() override
    {
        set(true);
        return 0;
    }
    int play(const std::uint8_t*, std::size_t) override
    {
        return 0;
    }
    void close() override
    {
        set(false);
    }

    bool becomes(bool open)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(20), [&] { return open_ == open; });
    }

private:
    void set(bool open)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        open_ = open;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

template <class T>
void expect(const char* what, const T& expected, const T& found)
{
    if (!(expected == found))
    {
        std::printf("WRONG %s\n", what);
        ++failures;
    }
}

void expectCalls(const char* what, const std::string& expected)
{
    const std::string found = DeviceCalls::take();
    if (found != expected)
    {
        std::printf("WRONG %s: the runtime was asked\n  for  %s\n  not  %s\n", what, found.c_str(),
                    expected.c_str());
        ++failures;
    }
}

template <class Factory>
SafePointer<IRTSPController> controller(const std::string& url)
{
    Factory factory;
    factory.setDeviceInfo(DeviceSettings::device("device", "192.0.2.10"));
    factory.setDeviceAbility(DeviceExAbility());
    factory.setThirdPlatType(platform);
    SafePointer<IRTSPController> made;
    expect(url.c_str(), 0, factory.createMedia(url, made, true));
    return made;
}

void playThrough(const SafePointer<IRTSPController>& media, const std::string& track, int kind)
{
    int ssrc = 0;
    expect("setup", 0, media->setup(session, track, connection(kind)));
    expect("play", 0, media->play(session, track));
    expect("getTrackSSRC", 0, media->getTrackSSRC(session, track, ssrc));
    expect("SSRC", 0x1234, ssrc);
    expect("pause", 0, media->pause(session, track));
    expect("stop", 0, media->stop(session, track));
}

void live()
{
    {
        const SafePointer<IRTSPController> media =
            controller<OVLiveControllerFactory>("rtsp://192.0.2.10/orv/live/12/3");
        MediaInfo info;
        expect("getMediaInfo", 0, media->getMediaInfo(info));
        expect("URL", std::string("orv/live/12/3"), DeviceSettings::url(info));
        playThrough(media, "video", 1);
        expect("unknown track", -8, media->setup(session, "none", connection(1)));
        expect("unknown transport", -6, media->setup(session, "video", connection(9)));
    }
    expectCalls("live", "device describe 12/3 build 12/3 video 1364 connect 1 play ssrc pause end");
    playThrough(controller<OVLiveControllerFactory2>("orv/live/1/0"), "video", 2);
    expectCalls("live by sessions", "device describe 1/0 open session 1424 connect 2 play ssrc pause end");
    {
        const SafePointer<IRTSPController> media =
            controller<OVMulticastLiveControlerFactory>("orv/live/1/0");
        GeneralSessionInfo info;
        expect("getSessionInfo", 0, media->getSessionInfo(info));
        expect("session", std::string("0/0"), DeviceSettings::text(info));
        playThrough(media, "video", 3);
    }
    expectCalls("multicast",
                "device describe 0/0 open group0/0 1364 connect 3 keep 0 keep 1 play ssrc pause end forget");
}

void recorded()
{
    {
        const SafePointer<IRTSPController> media =
            controller<OVPlaybackControllerFactory>("rtsp://192.0.2.10/orv/playback/2_100_3700");
        playThrough(media, "video", 1);
        double start = 0;
        double end = 0;
        bool connected = false;
        RTPPacketInfo packet;
        expect("correctPlayRange", 0, media->correctPlayRange(session, "video", 10, -1, start, end));
        expect("end", 3600.0, end);
        expect("setPlayRange", 0, media->setPlayRange(session, "video", start, end, 0, false));
        expect("getCurPlayRange", 0, media->getCurPlayRange(session, "video", start, end));
        expect("setPauseRange", 0, media->setPauseRange(session, "video", 5));
        expect("setSpeed", 0, media->setSpeed(session, "video", 1, 1));
        expect("getCurRTPPacketInfo", 0, media->getCurRTPPacketInfo(session, "video", packet));
        expect("getConnetionState", 0, media->getConnetionState(session, "video", connected));
        expect("connected", true, connected);
    }
    expectCalls("playback",
                "device describe 2@device/192.0.2.10:100-3700 of orv/playback/2_100_3700 "
                "open device 2@device/192.0.2.10:100-3700 setup video play ssrc pause end "
                "play range range pause at speed packet state");
    {
        OVPlayBack own;
        expect("init", 0,
               own.init(DeviceSettings::device("own", "192.0.2.11"), DeviceExAbility(), platform, 3, 5, 6));
        own.setMediaInfo(DeviceSettings::presentation("", {DeviceSettings::track("video", false)}));
        expect("setup", 0, own.setup(session, "video", connection(2)));
        expect("play", 0, own.play(session, "video"));
        expect("pause", 0, own.pause(session, "video"));
        expect("stop", 0, own.stop(session, "video"));
    }
    expectCalls("playback of its own",
                "3@own/192.0.2.11:5-6 start build video 1424 connect play pause end source gone");
}

void talkBack()
{
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    Player* const player = new Player;
    manager->setMediaPlayer(SafePointer<IMediaPlayer>(player));
    expect("start", 0, manager->start());
    const SafePointer<IRTSPController> media = controller<OVLiveControllerFactory>("orv/live/1/0");
    expect("setup", 0, media->setup(session, "talk", connection(1)));
    expect("play", 0, media->play(session, "talk"));
    expect("the output opens", true, player->becomes(true));
    expect("pause", 0, media->pause(session, "talk"));
    expect("the output closes", true, player->becomes(false));
    expect("stop", 0, media->stop(session, "talk"));
    manager->stop();
    expect("runs", false, manager->isRunning());
    expectCalls("talk-back", "device describe 1/0 hear talk 1364 connect play pause sender gone");
}

void misuse()
{
    SafePointer<IMediaUrl> empty;
    try
    {
        empty->toMediaUrl();
        expect("use of an empty handle", 1, 0);
    }
    catch (const OVRuntimeError& error)
    {
        expect("report", std::string("SafePointer Report:9IMediaUrl Use NULL pointer ->"),
               std::string(error.what()));
    }
}

}  // namespace

int main()
{
    MediaUrlFactoryMap::getInstance()->registerFactory(
        platform, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    live();
    recorded();
    talkBack();
    misuse();
    MediaUrlFactoryMap::getInstance()->unregisterFactory(platform);
    std::printf("%d went otherwise than meant\n", failures);
    return failures == 0 ? 0 : 1;
}
