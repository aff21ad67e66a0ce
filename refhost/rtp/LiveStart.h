#pragma once
// Tested by tests/refhost/live/TrackSenderStart_test.cpp.

#include <optional>
#include <string_view>

namespace refhost
{

/// How a viewer's delivery of a live stream starts. A plain value.
struct LiveStart
{
    enum class Mode
    {
        burst,    ///< from the last key frame on, as fast as the transport takes it
        paced,    ///< from the last key frame on, at most `rate` times as fast as it was captured
        keyFrame  ///< from the next key frame on, requested from the encoder
    };

    Mode mode = Mode::burst;
    int rate = 2;

    bool operator==(const LiveStart& other) const
    {
        return mode == other.mode && rate == other.rate;
    }

    /// \param name  "burst", "paced" or "key-frame"
    /// \returns nothing for another name
    static std::optional<Mode> named(std::string_view name);
};

}  // namespace refhost
