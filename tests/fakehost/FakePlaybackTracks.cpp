#include "tests/fakehost/FakePlaybackTracks.h"

#include <algorithm>
#include <sstream>

#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/FakeStatus.h"

FakePlaybackTracks::FakePlaybackTracks(const char* className, int number)
    : className_(className), number_(number)
{
}

int FakePlaybackTracks::outcomeOf(const char* operation, const std::string& arguments, int usual) const
{
    return FakeHost::instance().outcomeOf(className_, number_, operation, arguments, usual).result;
}

int FakePlaybackTracks::outcomeOf(const char* operation, const std::string& sessionId,
                                  const std::string& trackId, const std::vector<double>& more) const
{
    const bool known = ssrcOf(sessionId, trackId) != 0;
    const std::string numbers = more.empty() ? std::string() : ", " + textOf(more);
    return outcomeOf(operation, sessionId + ", " + trackId + numbers, known ? 0 : fakeTrackUnknown);
}

void FakePlaybackTracks::add(const std::string& sessionId, const std::string& trackId)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    // In place: a track without a connection cannot be copied.
    tracks_.erase(Key(sessionId, trackId));
    tracks_[Key(sessionId, trackId)].ssrc = ++lastSsrc_;
}

bool FakePlaybackTracks::connect(const std::string& sessionId, const std::string& trackId,
                                 const SafePointer<IConnection>& connection)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tracks_.find(Key(sessionId, trackId));
    if (found == tracks_.end())
    {
        return false;
    }
    found->second.connection = connection;
    return true;
}

void FakePlaybackTracks::remove(const std::string& sessionId, const std::string& trackId)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    tracks_.erase(Key(sessionId, trackId));
}

bool FakePlaybackTracks::hasSession(const std::string& sessionId) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto first = tracks_.lower_bound(Key(sessionId, std::string()));
    return first != tracks_.end() && first->first.first == sessionId;
}

bool FakePlaybackTracks::hasTrack(const std::string& trackId) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(tracks_.begin(), tracks_.end(),
                       [&](const auto& track) { return track.first.second == trackId; });
}

int FakePlaybackTracks::ssrcOf(const std::string& sessionId, const std::string& trackId) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = tracks_.find(Key(sessionId, trackId));
    return found == tracks_.end() ? 0 : found->second.ssrc;
}

std::string FakePlaybackTracks::textOf(const std::vector<double>& numbers)
{
    std::ostringstream text;
    for (std::size_t place = 0; place < numbers.size(); ++place)
    {
        text << (place == 0 ? "" : ", ") << numbers[place];
    }
    return text.str();
}
