#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"

/// The tracks of the fake host's playback dispatchers, and the log of calls to them.
/// Threads: any.
class FakePlaybackTracks
{
public:
    /// \param className, number  under which calls are logged; 0 for a class of which there is one
    FakePlaybackTracks(const char* className, int number);

    /// Logs a call and returns its result; without a script it is `usual`.
    int outcomeOf(const char* operation, const std::string& arguments, int usual = 0) const;

    /// The same for a call that concerns a track; without a script an unknown track is refused.
    /// \param more  what is logged behind the ids
    int outcomeOf(const char* operation, const std::string& sessionId, const std::string& trackId,
                  const std::vector<double>& more = {}) const;

    /// The track in the place of the one that has these ids.
    void add(const std::string& sessionId, const std::string& trackId);
    /// \returns false for an unknown track
    bool connect(const std::string& sessionId, const std::string& trackId,
                 const SafePointer<IConnection>& connection);
    void remove(const std::string& sessionId, const std::string& trackId);
    /// \returns true when one of the session's tracks is there
    bool hasSession(const std::string& sessionId) const;
    /// \returns true when any session has it
    bool hasTrack(const std::string& trackId) const;
    /// \returns 0 for an unknown track
    int ssrcOf(const std::string& sessionId, const std::string& trackId) const;

    /// "1, 2.5"
    static std::string textOf(const std::vector<double>& numbers);

private:
    struct Track
    {
        int ssrc = 0;
        SafePointer<IConnection> connection;
    };
    using Key = std::pair<std::string, std::string>;

    const char* const className_;
    const int number_;
    mutable std::mutex mutex_;
    std::map<Key, Track> tracks_;
    int lastSsrc_ = 5000;
};
