#include "hostapi/playback/RTPPlayBackDispacher.h"

#include "tests/fakehost/FakeDescription.h"
#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakePlaybackTracks.h"
#include "tests/fakehost/FakeStatus.h"

namespace
{

const char className[] = "RTPPlayBackDispacher";
const int defaultMtu = 1440;

}  // namespace

struct RTPPlayBackDispacher::Impl
{
    explicit Impl(int aNumber) : number(aNumber), tracks(className, aNumber) {}

    const int number;
    bool started = false;
    MTUParam mtu;
    SafePointer<IMediaSource> source;
    FakePlaybackTracks tracks;

    void called(const char* operation, const std::string& arguments) const
    {
        FakeHost::instance().called(className, number, operation, arguments);
    }
};

RTPPlayBackDispacher::RTPPlayBackDispacher() : impl_(new Impl(FakeHost::instance().nextNumber(className)))
{
    FakeHost::instance().born(className);
}

RTPPlayBackDispacher::~RTPPlayBackDispacher() noexcept(false)
{
    delete impl_;
    FakeHost::instance().died(className);
}

void RTPPlayBackDispacher::setMediaSource(const SafePointer<IMediaSource>& source)
{
    impl_->called("setMediaSource", FakeDescription::textOf(source->getRecordInfo()));
    impl_->source = source;
}

void RTPPlayBackDispacher::setTransferMixStreamFlag(bool mix)
{
    impl_->called("setTransferMixStreamFlag", mix ? "true" : "false");
}

void RTPPlayBackDispacher::setRTCPTimeout(int seconds)
{
    impl_->called("setRTCPTimeout", std::to_string(seconds));
}

void RTPPlayBackDispacher::setRTCPFrequence(int seconds)
{
    impl_->called("setRTCPFrequence", std::to_string(seconds));
}

void RTPPlayBackDispacher::setFramePacketMode(bool oneFramePerPacket)
{
    impl_->called("setFramePacketMode", oneFramePerPacket ? "true" : "false");
}

int RTPPlayBackDispacher::start()
{
    const int result =
        impl_->tracks.outcomeOf("start", std::string(), impl_->source.isEmpty() ? fakeNotStarted : 0);
    impl_->started = result == 0;
    return result;
}

MTUParam& RTPPlayBackDispacher::getMTUParam()
{
    // The MTU is scripted: tests cannot reach the dispatcher of a session.
    impl_->mtu.setMTUValue(impl_->tracks.outcomeOf("getMTUParam", std::string(), defaultMtu));
    return impl_->mtu;
}

int RTPPlayBackDispacher::initRTPBuilder(const std::string& sessionId, const std::string& trackId,
                                         const SubMediaInfo& info, int payloadSize)
{
    const int result = impl_->tracks.outcomeOf(
        "initRTPBuilder",
        sessionId + ", " + trackId + ", " + info.encodingName + ", " + std::to_string(payloadSize),
        impl_->started ? 0 : fakeNotStarted);
    if (result == 0)
    {
        impl_->tracks.add(sessionId, trackId);
    }
    return result;
}

int RTPPlayBackDispacher::addSessionConnection(const std::string& sessionId, const std::string& trackId,
                                               const SafePointer<IConnection>& connection)
{
    const int result = impl_->tracks.outcomeOf("addSessionConnection", sessionId, trackId,
                                               {double(connection->transportKind)});
    if (result == 0)
    {
        impl_->tracks.connect(sessionId, trackId, connection);
    }
    return result;
}

int RTPPlayBackDispacher::play(const std::string& sessionId, const std::string& trackId)
{
    return impl_->tracks.outcomeOf("play", sessionId, trackId);
}

int RTPPlayBackDispacher::pause(const std::string& sessionId, const std::string& trackId)
{
    return impl_->tracks.outcomeOf("pause", sessionId, trackId);
}

int RTPPlayBackDispacher::setPauseRange(const std::string& trackId, double instant)
{
    return impl_->tracks.outcomeOf("setPauseRange", trackId + ", " + FakePlaybackTracks::textOf({instant}),
                                   impl_->tracks.hasTrack(trackId) ? 0 : fakeTrackUnknown);
}

int RTPPlayBackDispacher::setSpeed(const std::string& sessionId, const std::string& trackId, double scale,
                                   double speed)
{
    return impl_->tracks.outcomeOf("setSpeed", sessionId, trackId, {scale, speed});
}

int RTPPlayBackDispacher::getCurPlayRange(const std::string& sessionId, const std::string& trackId,
                                          double& start, double& end)
{
    const int result = impl_->tracks.outcomeOf("getCurPlayRange", sessionId, trackId);
    if (result == 0)
    {
        start = 2.5;
        end = 30;
    }
    return result;
}

int RTPPlayBackDispacher::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    const int result = impl_->tracks.outcomeOf("getTrackSSRC", sessionId, trackId);
    if (result == 0)
    {
        ssrc = impl_->tracks.ssrcOf(sessionId, trackId);
    }
    return result;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value in the host contract
int RTPPlayBackDispacher::getConnectionState(std::string sessionId, std::string trackId, bool& connected)
{
    const int result = impl_->tracks.outcomeOf("getConnectionState", sessionId, trackId);
    if (result == 0)
    {
        connected = true;
    }
    return result;
}

int RTPPlayBackDispacher::deleteSessionConnection(const std::string& sessionId, const std::string& trackId)
{
    const int result = impl_->tracks.outcomeOf("deleteSessionConnection", sessionId, trackId);
    impl_->tracks.remove(sessionId, trackId);
    return result;
}
