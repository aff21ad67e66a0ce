#pragma once
// Tested by tests/refhost/http/RecordedLive_test.cpp.

#include <optional>
#include <string>
#include <string_view>

#include "refhost/http/HttpTarget.h"
#include "refhost/http/RecordedSocket.h"

namespace refhost
{

/// What clients say about the media that they want through a WebSocket. Threads: any; no state.
class RecordedQuery
{
public:
    static constexpr double minSpeed = 0.25;
    static constexpr double maxSpeed = 16;
    static constexpr double maxSpeedOfAllFrames = 4;
    /// Key frames that are sent for each second of the client's, at most.
    static constexpr double maxKeyFrameRate = 20;
    static constexpr double maxFirstAhead = 3600;
    /// Max. place on the media's timeline, seconds: more than a hundred years.
    static constexpr double maxPlace = 4e9;

    static bool wantsAudio(const HttpTarget& target);

    /// Reads the query of a request for recordings.
    /// \param[in,out] out  what the query says; unspecified when it is wrong
    /// \returns why the query is wrong, a sentence; empty when it is not
    static std::string read(const HttpTarget& target, RecordedSocket::Options& out);

    /// Reads a client's line: how far on the media's timeline it wants recordings.
    static std::optional<Duration> place(std::string_view line);
};

}  // namespace refhost
