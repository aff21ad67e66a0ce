#pragma once
// Tested by tests/refhost/hooks/Hooks_test.cpp.

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "refhost/config/Config.h"

namespace refhost
{

/// One hook: its configuration key, and what the configuration has for it.
struct HookTarget
{
    /// Hooks whose events belong together: they start in the order of the events, and have a queue of their own.
    enum class Kind
    {
        camera,
        recording,
        session,
        talk
    };
    static constexpr std::size_t kinds = 4;

    std::string_view hook;
    std::string HooksConfig::*target;
    Kind kind;
};

constexpr std::array<HookTarget, 8> hookTargets{
    {{"on-camera-up", &HooksConfig::cameraUp, HookTarget::Kind::camera},
     {"on-camera-down", &HooksConfig::cameraDown, HookTarget::Kind::camera},
     {"on-camera-frozen", &HooksConfig::cameraFrozen, HookTarget::Kind::camera},
     {"on-recording-segment", &HooksConfig::recordingSegment, HookTarget::Kind::recording},
     {"on-session-start", &HooksConfig::sessionStart, HookTarget::Kind::session},
     {"on-session-end", &HooksConfig::sessionEnd, HookTarget::Kind::session},
     {"on-talk-start", &HooksConfig::talkStart, HookTarget::Kind::talk},
     {"on-talk-end", &HooksConfig::talkEnd, HookTarget::Kind::talk}}};

}  // namespace refhost
