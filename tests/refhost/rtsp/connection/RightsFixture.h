#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "hostapi/audio/IMediaPlayer.h"
#include "refhost/ServedMedia.h"
#include "refhost/base/Base64.h"
#include "tests/TemporaryFolder.h"
#include "tests/refhost/rtp/GroupMember.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"
#include "tests/refhost/rtsp/connection/TlsClient.h"
#include "tests/refhost/rtsp/session/FakeRecording.h"

namespace refhost
{
namespace test
{

/// Cameras 1 and 2, each with a stream 0 and talk-back.
class TwoCameras : public HandFedStreams
{
public:
    TwoCameras()
    {
        talkBack = Codec::pcmu;
    }

    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override
    {
        return (cameraId == 1 || cameraId == 2) && streamId == 0 ? streams[cameraId - 1] : nullptr;
    }

    bool describeBackChannel(int cameraId, SubMediaInfo& out) override
    {
        const auto track = cameraId == 1 || cameraId == 2 ? backChannelOf(talkBack) : std::nullopt;
        out = track ? *track : out;
        return track.has_value();
    }
};

class SilentPlayer : public IMediaPlayer
{
public:
    void setDeviceInfo(const DeviceInfoEx&) override {}
    void setEncoderType(int) override {}
    int open() override
    {
        return 0;
    }
    int play(const std::uint8_t*, std::size_t) override
    {
        return 0;
    }
    void close() override {}
};

/// Makes controllers of any recording.
class RecordingFactory : public IRTSPControllerFactory
{
public:
    int createMedia(const std::string&, SafePointer<IRTSPController>& out, bool) override
    {
        out = SafePointer<IRTSPController>(new FakeRecording(std::make_shared<RecordingScript>()));
        return 0;
    }
};

/// A server with two cameras that offers everything: live over UDP, TCP, multicast and TLS, recordings, and
/// talk-back. Basic is accepted everywhere; each user's password is "secret".
class RightsFixture : public RtspServerFixture
{
protected:
    static constexpr const char* requireTalk = "Require: www.onvif.org/ver20/backchannel\r\n";

    RightsFixture()
    {
        streams = std::make_shared<TwoCameras>();
        Device::setStreams(streams);
        config.auth.basic = "always";
        config.tls.selfSigned = true;
        config.tls.directory = folder_.path();
        config.tls.port = 0;
        config.multicast.pool = "239.255.42.192/28";
        config.multicast.port = GroupMember::firstPort();
        media_ = std::make_unique<ServedMedia>(config);
        routes.add(*media_->routes(DeviceInfoEx()).find("orv/multicast/1/0"));
        MediaRoutes::Route recorded;
        recorded.prefix = "orv/playback";
        recorded.factory = SafePointer<IRTSPControllerFactory>(new RecordingFactory);
        recorded.recorded = true;
        routes.add(recorded);
        talkBack()->setMediaPlayer(SafePointer<IMediaPlayer>(new SilentPlayer));
        EXPECT_EQ(0, talkBack()->start());
    }

    ~RightsFixture() override
    {
        server.reset();
        EXPECT_EQ(0, talkBack()->getSessionNum());
        talkBack()->stop();
    }

    static SafePointer<OVAudioBackDispatcherMgr> talkBack()
    {
        return OVAudioBackDispatcherMgr::getInstance();
    }

    /// The header that logs `user` in; none for an empty one.
    static std::string login(const std::string& user)
    {
        if (user.empty())
        {
            return {};
        }
        const std::string text = user + ":secret";
        return "Authorization: Basic " +
               base64Of(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()) + "\r\n";
    }

    static UserConfig user(const std::string& name, const GrantsConfig& grants,
                           const std::string& groups = {})
    {
        return {name, "secret", groups, grants};
    }
    static UserConfig anonymous(const GrantsConfig& grants)
    {
        return {"anonymous", "", "", grants};
    }

private:
    TemporaryFolder folder_;
    std::unique_ptr<ServedMedia> media_;
};

}  // namespace test
}  // namespace refhost
