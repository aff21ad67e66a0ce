#pragma once
// Tested by tests/refhost/http/LiveRoute_test.cpp, tests/refhost/http/RecordedLive_test.cpp.

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// What a WebSocket with media sends besides fragments. Threads: any; no state.
class StreamMessages
{
public:
    /// Appends a text message that describes the tracks, and the init segment. Null: there is no such track; one is not.
    static void addDescription(const MediaFormat* video, const MediaFormat* audio, std::string& out);

    /// Appends a text message.
    static void add(const nlohmann::ordered_json& message, std::string& out);

    /// Appends a fragment.
    static void add(const std::vector<std::uint8_t>& fragment, std::string& out);
};

}  // namespace refhost
