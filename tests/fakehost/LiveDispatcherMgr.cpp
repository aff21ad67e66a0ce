#include "hostapi/live/LiveDispatcherMgr.h"

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

using Tracks = std::map<std::string, Track>;

/// Number of a session's tracks that have a connection.
int connectedTracks(const Tracks& tracks)
{
    int count = 0;
    for (const auto& track : tracks)
    {
        count += track.second.connection.isEmpty() ? 0 : 1;
    }
    return count;
}

/// "id [member member] [track=url track=url]", so that a test sees what is stored and when.
std::string textOf(const MulticastSessionParameter& param)
{
    std::string members;
    for (const std::string& id : param.getMemberSessionIdList())
    {
        members += (members.empty() ? "" : " ") + id;
    }
    std::string tracks;
    for (const TrackParam& track : param.getTrackParamList())
    {
        tracks += (tracks.empty() ? "" : " ") + track.getTrackID() + "@" + track.getMeidaUrl();
    }
    return param.getMulticastSessionId() + ", [" + members + "], [" + tracks + "]";
}

}  // namespace

struct LiveDispatcherMgr::Impl
{
    mutable std::mutex mutex;
    MTUParam mtu;
    std::map<std::string, Tracks> sessions;
    std::map<std::string, SafePointer<MulticastSessionParameter>> records;
    int lastSsrc = 3000;

    // Records a call; `usual` is its result without a script.
    static int outcomeOf(const char* operation, const std::string& arguments, int usual)
    {
        return FakeHost::instance().outcomeOf("LiveDispatcherMgr", 0, operation, arguments, usual).result;
    }

    // Caller holds the mutex. \returns null for an unknown track
    Track* find(const std::string& sessionId, const std::string& trackId)
    {
        const auto session = sessions.find(sessionId);
        if (session == sessions.end())
        {
            return nullptr;
        }
        const auto track = session->second.find(trackId);
        return track == session->second.end() ? nullptr : &track->second;
    }

    // A verb of a track that needs a connection. Caller holds the mutex.
    int outcomeFor(const char* operation, const std::string& sessionId, const std::string& trackId)
    {
        const Track* const track = find(sessionId, trackId);
        const bool known = track != nullptr && !track->connection.isEmpty();
        return outcomeOf(operation, sessionId + ", " + trackId, known ? 0 : fakeTrackUnknown);
    }
};

LiveDispatcherMgr::LiveDispatcherMgr() : impl_(new Impl)
{
    impl_->mtu.setMTUValue(1440);
}

LiveDispatcherMgr::~LiveDispatcherMgr() noexcept(false)
{
    delete impl_;
}

SafePointer<LiveDispatcherMgr> LiveDispatcherMgr::getInstance()
{
    static SafePointer<LiveDispatcherMgr> instance(new LiveDispatcherMgr);
    return instance;
}

MTUParam& LiveDispatcherMgr::getMTUParam()
{
    FakeHost::instance().called("LiveDispatcherMgr", 0, "getMTUParam");
    return impl_->mtu;
}

bool LiveDispatcherMgr::findSession(const std::string& sessionId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    FakeHost::instance().called("LiveDispatcherMgr", 0, "findSession", sessionId);
    return impl_->sessions.count(sessionId) != 0;
}

int LiveDispatcherMgr::initSession(const std::string& sessionId, int cameraId, int streamId,
                                   const MediaInfo& info, int payloadSize)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const int result =
        Impl::outcomeOf("initSession",
                        sessionId + ", " + std::to_string(cameraId) + ", " + std::to_string(streamId) + ", " +
                            info.mediaUrl + ", " + std::to_string(payloadSize),
                        0);
    if (result == 0)
    {
        Tracks& tracks = impl_->sessions[sessionId];
        tracks.clear();
        for (const SubMediaInfo& track : info.getAllSubMediaInfo())
        {
            tracks[track.trackId].ssrc = ++impl_->lastSsrc;
        }
    }
    return result;
}

int LiveDispatcherMgr::addSessionConnection(const std::string& sessionId, const std::string& trackId,
                                            const SafePointer<IConnection>& connection)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    Track* const track = impl_->find(sessionId, trackId);
    const int result =
        Impl::outcomeOf("addSessionConnection",
                        sessionId + ", " + trackId + ", kind " + std::to_string(connection->transportKind),
                        track != nullptr ? 0 : fakeTrackUnknown);
    if (result == 0 && track != nullptr)
    {
        track->connection = connection;
    }
    return result;
}

int LiveDispatcherMgr::play(const std::string& sessionId, const std::string& trackId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->outcomeFor("play", sessionId, trackId);
}

int LiveDispatcherMgr::pause(const std::string& sessionId, const std::string& trackId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->outcomeFor("pause", sessionId, trackId);
}

int LiveDispatcherMgr::deleteSessionConection(const std::string& sessionId, const std::string& trackId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const int result = impl_->outcomeFor("deleteSessionConection", sessionId, trackId);
    const auto session = impl_->sessions.find(sessionId);
    if (result == 0 && session != impl_->sessions.end())
    {
        session->second.erase(trackId);
        if (connectedTracks(session->second) == 0)
        {
            impl_->sessions.erase(session);
        }
    }
    return result;
}

int LiveDispatcherMgr::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const Track* const track = impl_->find(sessionId, trackId);
    const int result =
        Impl::outcomeOf("getTrackSSRC", sessionId + ", " + trackId, track != nullptr ? 0 : fakeTrackUnknown);
    if (result == 0 && track != nullptr)
    {
        ssrc = track->ssrc;
    }
    return result;
}

bool LiveDispatcherMgr::findMulticastSessionId(const std::string& multicastSessionId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    FakeHost::instance().called("LiveDispatcherMgr", 0, "findMulticastSessionId", multicastSessionId);
    return impl_->records.count(multicastSessionId) != 0;
}

int LiveDispatcherMgr::getMulticastSessionParam(const std::string& multicastSessionId,
                                                SafePointer<MulticastSessionParameter>& param) const
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const auto found = impl_->records.find(multicastSessionId);
    const bool known = found != impl_->records.end();
    const int result =
        Impl::outcomeOf("getMulticastSessionParam", multicastSessionId, known ? 0 : fakeTrackUnknown);
    if (result == 0 && known)
    {
        param = found->second;
    }
    return result;
}

int LiveDispatcherMgr::addMulticastSessionParam(const SafePointer<MulticastSessionParameter>& param)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const int result = Impl::outcomeOf("addMulticastSessionParam", textOf(*param.operator->()), 0);
    if (result == 0)
    {
        impl_->records[param->getMulticastSessionId()] = param;
    }
    return result;
}

int LiveDispatcherMgr::deleteMulticastSessionParam(const std::string& multicastSessionId)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    const bool known = impl_->records.count(multicastSessionId) != 0;
    const int result =
        Impl::outcomeOf("deleteMulticastSessionParam", multicastSessionId, known ? 0 : fakeTrackUnknown);
    if (result == 0)
    {
        impl_->records.erase(multicastSessionId);
    }
    return result;
}
