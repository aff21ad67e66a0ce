#include "tests/fuzz/ServerWorld.h"

#include <gst/gst.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "refhost/base/HostStatus.h"
#include "refhost/base/Log.h"
#include "refhost/media/GstHandles.h"
#include "refhost/playback/PlaybackService.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr WallTime recordedFrom = wallTimeOfUnix(1'700'000'000);
constexpr int recordedSeconds = 3;

/// Requires that every requested range is inside the recording.
class CheckedRecording : public FakeRecording
{
public:
    using FakeRecording::FakeRecording;

    int setPlayRange(const std::string& sessionId, const std::string& trackId, double begin, double end,
                     int kind, bool toRange) override
    {
        require(!toRange || (inside(begin) && inside(end)), "play range");
        return FakeRecording::setPlayRange(sessionId, trackId, begin, end, kind, toRange);
    }

    int setPauseRange(const std::string& sessionId, const std::string& trackId, double instant) override
    {
        require(inside(instant), "pause point");
        return FakeRecording::setPauseRange(sessionId, trackId, instant);
    }

    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                 double speed) override
    {
        require(PlaySpeed::used(scale, speed) == PlaySpeed{scale, speed}, "speed");
        return FakeRecording::setSpeed(sessionId, trackId, scale, speed);
    }

private:
    static bool inside(double instant)
    {
        return instant >= 0 && instant <= RecordingScript::seconds;
    }
};

class CheckedRecordingFactory : public IRTSPControllerFactory
{
public:
    explicit CheckedRecordingFactory(std::shared_ptr<RecordingScript> script) : script_(std::move(script)) {}

    int createMedia(const std::string&, SafePointer<IRTSPController>& out, bool) override
    {
        out = SafePointer<IRTSPController>(new CheckedRecording(script_));
        return 0;
    }

private:
    const std::shared_ptr<RecordingScript> script_;
};

void runPipeline(const std::string& line)
{
    const GstObjectPtr<GstElement> pipeline(gst_parse_launch(line.c_str(), nullptr));
    require(pipeline != nullptr, "a pipeline for the recording");
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    GstBus* const bus = gst_element_get_bus(pipeline.get());
    const GstValuePtr<GstMessage> message(gst_bus_timed_pop_filtered(
        bus, 60 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    gst_object_unref(bus);
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    require(message != nullptr && GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS, "a recording");
}

std::string& temporaryFolder()
{
    static std::string folder;
    return folder;
}

/// Workers end and files are removed before what they use is destroyed.
void cleanUp()
{
    PlaybackService::instance().stop();
    Device::setRecordings(nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(temporaryFolder(), ignored);
}

}  // namespace

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

ServerWorld& ServerWorld::instance()
{
    static ServerWorld* const world = new ServerWorld;
    return *world;
}

ServerConfig ServerWorld::configuration()
{
    ServerConfig config;
    config.liveController = "both";
    config.talkBack.output = "null";
    config.limits.sessions = 8;
    config.multicast.pool = "239.255.42.224/28";
    config.multicast.port = 30000;
    config.cameras = ServerConfig::embeddedCameras();
    config.cameras.front().talkBack = Codec::pcmu;
    return config;
}

ServerWorld::ServerWorld()
{
    Log::setLevel(Log::Level::off);
    gst_init(nullptr, nullptr);
    routes_ = media_.routes(DeviceInfoEx());
    MediaRoutes::Route scripted;
    scripted.prefix = "scripted/playback";
    scripted.factory = SafePointer<IRTSPControllerFactory>(new CheckedRecordingFactory(script));
    scripted.recorded = true;
    routes_.add(scripted);
    streams->talkBack = Codec::pcmu;
    streams->streams[1]->description = StreamSource::Description::starting;
    Device::setStreams(streams);
    temporaryFolder() = (std::filesystem::temp_directory_path() / "rtsp-fuzz-XXXXXX").string();
    require(mkdtemp(temporaryFolder().data()) != nullptr, "a temporary folder");
    std::atexit(cleanUp);
    record(temporaryFolder());
}

void ServerWorld::record(const std::string& directory)
{
    std::string error;
    const std::shared_ptr<RecordingIndex> index = RecordingIndex::open(directory, error);
    require(index != nullptr, "an index");
    RecordedSegment segment;
    segment.cameraId = 1;
    segment.begin = recordedFrom;
    segment.duration = std::chrono::seconds(recordedSeconds);
    segment.path = directory + "/1.mkv";
    segment.closed = true;
    runPipeline("videotestsrc num-buffers=" + std::to_string(25 * recordedSeconds) +
                " ! video/x-raw,format=I420,width=64,height=48,framerate=25/1 ! x264enc tune=zerolatency"
                " speed-preset=ultrafast key-int-max=25 ! h264parse ! queue ! mux."
                " audiotestsrc samplesperbuffer=160 num-buffers=" +
                std::to_string(50 * recordedSeconds) +
                " ! audio/x-raw,rate=8000,channels=1 ! mulawenc ! queue ! mux."
                " matroskamux name=mux ! filesink location=" +
                segment.path);
    segment.bytes = static_cast<std::int64_t>(std::filesystem::file_size(segment.path));
    const auto id = index->add(segment);
    require(id && index->close(*id, segment.duration, segment.bytes), "a segment");
    Device::setRecordings(index);
}

std::unique_ptr<RtspServices> ServerWorld::services(bool users) const
{
    ServerConfig config = config_;
    if (users)
    {
        config.users = {{"admin", "secret"}, {"guest", "visit"}};
        config.auth.exemptLoopback = false;
        config.auth.freeFailures = 1;
    }
    auto services = std::make_unique<RtspServices>(config, routes_, HostClock::system());
    std::string error;
    services->udp = UdpServer::open(UdpServer::Options(), error);
    MulticastServer::Options multicast;
    multicast.pool.range = MulticastRange::parse(config.multicast.pool).value_or(MulticastRange());
    multicast.pool.port = config.multicast.port;
    multicast.listen = "127.0.0.1";
    services->multicast = MulticastServer::open(multicast, error);
    require(services->udp != nullptr && services->multicast != nullptr, "sockets");
    return services;
}

void ServerWorld::feed()
{
    time_ += 3600;
    const std::int64_t captureNs = test::nsOf(recordedFrom) + std::int64_t{time_} * 11111;
    streams->streams[0]->feed("trackID=0", makeUnit(time_, captureNs, time_ % 7200 == 0, 3));
    streams->streams[0]->feed("trackID=1", makeUnit(time_, captureNs, true, 1, 160, 160));
}

}  // namespace test
}  // namespace refhost
