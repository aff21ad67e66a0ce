#pragma once
// Tested by tests/refhost/access/AccessRules_test.cpp.

#include <array>
#include <cstddef>
#include <string_view>

namespace refhost
{

/// What a user may be permitted to do with a camera, whatever protocol asks for it.
enum class Right
{
    live,      ///< watch it live, over unicast or multicast
    playback,  ///< watch its recordings
    talk,      ///< send audio to the device
    admin      ///< administer it
};

constexpr std::array<Right, 4> allRights{Right::live, Right::playback, Right::talk, Right::admin};

/// Its key in the configuration.
constexpr std::string_view nameOf(Right right)
{
    constexpr std::array<std::string_view, allRights.size()> names{"live", "playback", "talk", "admin"};
    return names[static_cast<std::size_t>(right)];
}

}  // namespace refhost
