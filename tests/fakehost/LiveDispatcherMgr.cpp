#include "hostapi/live/LiveDispatcherMgr.h"

#include <map>
#include <mutex>

#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakeLiveSessions.h"
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

// One for the process, as the dispatcher, and never destroyed.
struct State
{
    std::mutex mutex;
    std::map<std::string, Tracks> sessions;
    std::map<std::string, SafePointer<MulticastSessionParameter>> records;
    int lastSsrc = 3000;
    MTUParam mtu;
    bool noDispatcher = false;

    static State& instance()
    {
        static State* const state = new State;
        return *state;
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
};

// Records a call; `usual` is its result without a script.
int outcomeOf(const char* operation, const std::string& arguments, int usual)
{
    return FakeHost::instance().outcomeOf("LiveDispatcherMgr", 0, operation, arguments, usual).result;
}

// A method of a track that needs a connection. Caller holds the mutex.
int outcomeFor(State& state, const char* operation, const std::string& sessionId, const std::string& trackId)
{
    const Track* const track = state.find(sessionId, trackId);
    const bool known = track != nullptr && !track->connection.isEmpty();
    return outcomeOf(operation, sessionId + ", " + trackId, known ? 0 : fakeTrackUnknown);
}

}  // namespace

struct LiveDispatcherMgr::Impl
{
};

void FakeLiveSessions::clear()
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.sessions.clear();
    state.records.clear();
    state.mtu.setMTUValue(usualMtu);
    state.noDispatcher = false;
}

void FakeLiveSessions::haveNoDispatcher()
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.noDispatcher = true;
}

LiveDispatcherMgr::LiveDispatcherMgr() : impl_(nullptr)
{
    FakeLiveSessions::clear();
}

LiveDispatcherMgr::~LiveDispatcherMgr() noexcept(false) = default;

SafePointer<LiveDispatcherMgr> LiveDispatcherMgr::getInstance()
{
    static SafePointer<LiveDispatcherMgr> instance(new LiveDispatcherMgr);
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    if (state.noDispatcher)
    {
        return SafePointer<LiveDispatcherMgr>();
    }
    return instance;
}

MTUParam& LiveDispatcherMgr::getMTUParam()
{
    FakeHost::instance().called("LiveDispatcherMgr", 0, "getMTUParam");
    return State::instance().mtu;
}

bool LiveDispatcherMgr::findSession(const std::string& sessionId)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    FakeHost::instance().called("LiveDispatcherMgr", 0, "findSession", sessionId);
    return state.sessions.count(sessionId) != 0;
}

int LiveDispatcherMgr::initSession(const std::string& sessionId, int cameraId, int streamId,
                                   const MediaInfo& info, int payloadSize)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const int result =
        outcomeOf("initSession",
                  sessionId + ", " + std::to_string(cameraId) + ", " + std::to_string(streamId) + ", " +
                      info.mediaUrl + ", " + std::to_string(payloadSize),
                  0);
    if (result == 0)
    {
        Tracks& tracks = state.sessions[sessionId];
        tracks.clear();
        for (const SubMediaInfo& track : info.getAllSubMediaInfo())
        {
            tracks[track.trackId].ssrc = ++state.lastSsrc;
        }
    }
    return result;
}

int LiveDispatcherMgr::addSessionConnection(const std::string& sessionId, const std::string& trackId,
                                            const SafePointer<IConnection>& connection)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    Track* const track = state.find(sessionId, trackId);
    const int result =
        outcomeOf("addSessionConnection",
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
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return outcomeFor(state, "play", sessionId, trackId);
}

int LiveDispatcherMgr::pause(const std::string& sessionId, const std::string& trackId)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return outcomeFor(state, "pause", sessionId, trackId);
}

int LiveDispatcherMgr::deleteSessionConection(const std::string& sessionId, const std::string& trackId)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const int result = outcomeFor(state, "deleteSessionConection", sessionId, trackId);
    const auto session = state.sessions.find(sessionId);
    if (result == 0 && session != state.sessions.end())
    {
        session->second.erase(trackId);
        session->second[trackId].ssrc = ++state.lastSsrc;
        if (connectedTracks(session->second) == 0)
        {
            state.sessions.erase(session);
        }
    }
    return result;
}

int LiveDispatcherMgr::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const Track* const track = state.find(sessionId, trackId);
    const int result =
        outcomeOf("getTrackSSRC", sessionId + ", " + trackId, track != nullptr ? 0 : fakeTrackUnknown);
    if (result == 0 && track != nullptr)
    {
        ssrc = track->ssrc;
    }
    return result;
}

bool LiveDispatcherMgr::findMulticastSessionId(const std::string& multicastSessionId)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    FakeHost::instance().called("LiveDispatcherMgr", 0, "findMulticastSessionId", multicastSessionId);
    return state.records.count(multicastSessionId) != 0;
}

int LiveDispatcherMgr::getMulticastSessionParam(const std::string& multicastSessionId,
                                                SafePointer<MulticastSessionParameter>& param) const
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const auto found = state.records.find(multicastSessionId);
    const bool known = found != state.records.end();
    const int result =
        outcomeOf("getMulticastSessionParam", multicastSessionId, known ? 0 : fakeTrackUnknown);
    if (result == 0 && known)
    {
        param = found->second;
    }
    return result;
}

int LiveDispatcherMgr::addMulticastSessionParam(const SafePointer<MulticastSessionParameter>& param)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const int result = outcomeOf("addMulticastSessionParam", textOf(*param.operator->()), 0);
    if (result == 0)
    {
        state.records[param->getMulticastSessionId()] = param;
    }
    return result;
}

int LiveDispatcherMgr::deleteMulticastSessionParam(const std::string& multicastSessionId)
{
    State& state = State::instance();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const bool known = state.records.count(multicastSessionId) != 0;
    const int result =
        outcomeOf("deleteMulticastSessionParam", multicastSessionId, known ? 0 : fakeTrackUnknown);
    if (result == 0)
    {
        state.records.erase(multicastSessionId);
    }
    return result;
}
