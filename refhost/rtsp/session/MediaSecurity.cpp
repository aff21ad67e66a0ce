#include "refhost/rtsp/session/MediaSecurity.h"

#include <array>
#include <cstddef>

namespace refhost
{
namespace
{

// In the order of Protection.
constexpr std::array<std::string_view, 4> names{"none", "tls", "srtp", "any-encrypted"};

}  // namespace

MediaSecurity::MediaSecurity(const ServerConfig& config)
    : default_(named(config.security)), keysInClear_(config.srtp.keys == "always")
{
    for (const CameraConfig& camera : config.cameras)
    {
        if (camera.security != "default")
        {
            cameras_[camera.id] = named(camera.security);
        }
    }
}

Protection MediaSecurity::of(std::optional<int> camera) const
{
    const auto found = camera ? cameras_.find(*camera) : cameras_.end();
    return found == cameras_.end() ? default_ : found->second;
}

bool MediaSecurity::describesSrtp(Protection protection, bool encrypted, bool requested)
{
    return protection == Protection::srtp || (protection == Protection::anyEncrypted && !encrypted) ||
           (requested && protection != Protection::tls);
}

bool MediaSecurity::admits(Protection protection, bool encrypted, const TransportChoice& choice)
{
    const bool inTls = encrypted && choice.interleaved;
    switch (protection)
    {
        case Protection::none:
            return true;
        case Protection::tls:
            return inTls;
        case Protection::srtp:
            return choice.secure;
        case Protection::anyEncrypted:
            return choice.secure || inTls;
    }
    return false;
}

std::string_view MediaSecurity::nameOf(Protection protection)
{
    return names.at(static_cast<std::size_t>(protection));
}

/// An unknown name is the strictest.
Protection MediaSecurity::named(std::string_view name)
{
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        if (names.at(i) == name)
        {
            return static_cast<Protection>(i);
        }
    }
    return Protection::srtp;
}

}  // namespace refhost
