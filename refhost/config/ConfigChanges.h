#pragma once

#include <string>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/config/ConfigKeys.h"

namespace refhost
{

/// What differs between the configuration that a server runs with and another one, key by key. Cameras and streams
/// are compared by their ids, users and groups by their names, whatever their order in the file. Constant once made.
/// Threads: any.
class ConfigChanges
{
public:
    struct Change
    {
        std::string name;  ///< such as "[limits] sessions" or "camera 2, stream 0: width"; never a value
        ReloadEffect effect;
    };

    /// \param running  as effective() of the last changes gave it
    /// \param next     as ConfigReader accepts it
    ConfigChanges(const ServerConfig& running, const ServerConfig& next);

    const std::vector<Change>& all() const
    {
        return changes_;
    }

    /// Whether some key of this effect differs, in the section itself and not in those within.
    static bool differIn(ReloadEffect effect, const CameraConfig& one, const CameraConfig& other);
    static bool differIn(ReloadEffect effect, const StreamConfig& one, const StreamConfig& other);

    /// The names of those that the running server cannot apply.
    std::vector<std::string> needRestart() const;

    /// The configuration that the server runs with from now on: `next`, but for keys that need a restart, which keep
    /// their values.
    const ServerConfig& effective() const
    {
        return effective_;
    }

private:
    std::vector<Change> changes_;
    ServerConfig effective_;
};

}  // namespace refhost
