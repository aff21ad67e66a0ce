#pragma once
// Tested by tests/refhost/http/HealthRoutes_test.cpp.

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "refhost/access/AccessControl.h"
#include "refhost/capture/CameraStates.h"
#include "refhost/config/Config.h"
#include "refhost/config/Reloader.h"
#include "refhost/recording/RecordingControl.h"
#include "refhost/rtsp/session/SessionTable.h"

namespace refhost
{

/// What the routes of the HTTP service show of the server, and who may see it. Threads: any.
struct ServerView
{
    /// The configuration in force; never null.
    std::function<std::shared_ptr<const ServerConfig>()> config;
    /// Outlives the routes.
    const AccessControl* access;
    /// Likewise.
    const CameraStates* cameras;

    /// Likewise.
    SessionTable* sessions;

    /// Likewise; null: the configuration cannot be read again.
    Reloader* reloader = nullptr;

    /// Likewise; null: the server does not record.
    RecordingControl* recording = nullptr;

    /// Whether a user may know that a camera is there: it may watch it live or recorded, or administer it.
    /// \param user  empty: a client that did not log in
    bool shows(std::string_view user, std::optional<int> camera) const
    {
        const auto rules = access->rules();
        return rules->allows(user, Right::live, camera) || rules->allows(user, Right::playback, camera) ||
               rules->allows(user, Right::admin, camera);
    }
};

}  // namespace refhost
