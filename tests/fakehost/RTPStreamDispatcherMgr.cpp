#include "hostapi/live/RTPStreamDispatcherMgr.h"

#include <map>
#include <mutex>

#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakeStatus.h"

namespace
{

struct Track
{
    int ssrc = 0;
    SafePointer<IConnection> connection;
};

std::string keyOf(const std::string& streamKey, const std::string& sessionId, const std::string& trackId)
{
    return streamKey + ", " + sessionId + ", " + trackId;
}

}  // namespace

struct RTPStreamDispatcherMgr::Impl
{
    std::mutex mutex;
    std::map<std::string, Track> tracks;
    int lastSsrc = 1000;

    // Records the call; a known track usually succeeds. Caller holds the mutex.
    int outcomeFor(const char* operation, const std::string& key, const std::string& more = std::string())
    {
        const int usual = tracks.count(key) != 0 ? 0 : fakeTrackUnknown;
        return FakeHost::instance()
            .outcomeOf("RTPStreamDispatcherMgr", 0, operation, key + more, usual)
            .result;
    }
};

RTPStreamDispatcherMgr::RTPStreamDispatcherMgr() : impl_(new Impl) {}

RTPStreamDispatcherMgr::~RTPStreamDispatcherMgr() noexcept(false)
{
    delete impl_;
}

SafePointer<RTPStreamDispatcherMgr> RTPStreamDispatcherMgr::getInstance()
{
    static SafePointer<RTPStreamDispatcherMgr> instance(new RTPStreamDispatcherMgr);
    return instance;
}

int RTPStreamDispatcherMgr::initRTPBuilder(const std::string& streamKey, const std::string& sessionId,
                                           const std::string& trackId, const SubMediaInfo& info,
                                           int payloadSize)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const std::string key = keyOf(streamKey, sessionId, trackId);
    const FakeHost::Outcome outcome = FakeHost::instance().outcomeOf(
        "RTPStreamDispatcherMgr", 0, "initRTPBuilder",
        key + ", " + info.encodingName + ", " + std::to_string(payloadSize), 0);
    if (outcome.result == 0)
    {
        // In place: a track without a connection cannot be copied.
        impl_->tracks.erase(key);
        impl_->tracks[key].ssrc = ++impl_->lastSsrc;
    }
    return outcome.result;
}

int RTPStreamDispatcherMgr::addRTPConnection(const std::string& streamKey, const std::string& sessionId,
                                             const std::string& trackId,
                                             const SafePointer<IConnection>& connection)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const std::string key = keyOf(streamKey, sessionId, trackId);
    const int result =
        impl_->outcomeFor("addRTPConnection", key, ", kind " + std::to_string(connection->transportKind));
    if (result == 0)
    {
        impl_->tracks[key].connection = connection;
    }
    return result;
}

int RTPStreamDispatcherMgr::play(const std::string& streamKey, const std::string& sessionId,
                                 const std::string& trackId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->outcomeFor("play", keyOf(streamKey, sessionId, trackId));
}

int RTPStreamDispatcherMgr::pause(const std::string& streamKey, const std::string& sessionId,
                                  const std::string& trackId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->outcomeFor("pause", keyOf(streamKey, sessionId, trackId));
}

int RTPStreamDispatcherMgr::deleteRTPConnection(const std::string& streamKey, const std::string& sessionId,
                                                const std::string& trackId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const std::string key = keyOf(streamKey, sessionId, trackId);
    const int result = impl_->outcomeFor("deleteRTPConnection", key);
    impl_->tracks.erase(key);
    return result;
}

int RTPStreamDispatcherMgr::getTrackSSRC(const std::string& streamKey, const std::string& sessionId,
                                         const std::string& trackId, int& ssrc)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const std::string key = keyOf(streamKey, sessionId, trackId);
    const int result = impl_->outcomeFor("getTrackSSRC", key);
    const auto found = impl_->tracks.find(key);
    if (result == 0 && found != impl_->tracks.end())
    {
        ssrc = found->second.ssrc;
    }
    return result;
}
