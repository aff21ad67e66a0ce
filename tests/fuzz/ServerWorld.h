#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "refhost/ServedMedia.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/talkback/TalkBack.h"
#include "tests/refhost/rtsp/connection/HandFedStreams.h"
#include "tests/refhost/rtsp/session/FakeRecording.h"

namespace refhost
{
namespace test
{

/// Everything below the RTSP server, once per process: the routes of the program, with both live controllers, multicast
/// on the loopback interface, talk-back without an output and a real recording; also scripted recordings, which are
/// never ready at once.
///
///     rtsp://h/orv/live/1/0                            hand-fed; 1/1 never gets ready
///     rtsp://h/second/orv/live/1/0                     the same through the second controller
///     rtsp://h/orv/multicast/1/0
///     rtsp://h/orv/playback/1_1700000000_1700000003    3 s of GStreamer's test pattern and tone
///     rtsp://h/scripted/playback/1_1700000000_1700000060
class ServerWorld
{
public:
    static ServerWorld& instance();

    /// What one connection's handler works with; a world of its own for sessions, ports and groups.
    /// \param users  with the users admin/secret and guest/visit
    std::unique_ptr<RtspServices> services(bool users) const;

    /// Feeds a frame and a block of audio to stream 1/0.
    void feed();

    std::shared_ptr<HandFedStreams> streams = std::make_shared<HandFedStreams>();
    std::shared_ptr<RecordingScript> script = std::make_shared<RecordingScript>();

private:
    ServerWorld();
    static ServerConfig configuration();
    void record(const std::string& directory);

    const ServerConfig config_ = configuration();
    ServedMedia media_{config_};
    TalkBack talkBack_{config_, DeviceInfoEx(), DeviceExAbility(), ServedMedia::platformType};
    MediaRoutes routes_;
    std::uint32_t time_ = 0;
};

/// Ends the process with a line on the standard error output unless `condition` holds.
void require(bool condition, const char* what);

}  // namespace test
}  // namespace refhost
