#pragma once
// Tested by tests/refhost/rtsp/session/CommonControllers_test.cpp.

#include <cstddef>
#include <map>
#include <string>
#include <utility>

#include "hostapi/description/MediaInfo.h"
#include "live/IRTSPController.h"
#include "refhost/base/Mutex.h"
#include "refhost/rtsp/session/MediaRoutes.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The controllers that sessions of one presentation have in common: a controller has nothing of a session, and
/// its description alone takes hundreds of bytes.
///
/// Keeps the last one of each presentation, up to `maxKept`, until it is described differently. Threads: any;
/// one lock of its own, under which controllers are asked for their descriptions.
class CommonControllers
{
public:
    /// Presentations; sessions of further ones have controllers of their own.
    static constexpr std::size_t maxKept = 1024;

    /// \param fresh  a controller of a route of common controllers, made for a session
    /// \returns the controller that earlier sessions of the presentation have, if it describes the same;
    ///          otherwise `fresh`, and later sessions get that one. A controller with a back channel, which
    ///          remembers its track, is always its session's own
    SafePointer<IRTSPController> common(const MediaRoutes::Route& route,
                                        const SafePointer<IRTSPController>& fresh);

    std::size_t kept() const;

private:
    struct Entry
    {
        SafePointer<IRTSPController> controller;
        MediaInfo described;
    };
    /// A route, and the canonical URL of a presentation.
    using Key = std::pair<const MediaRoutes::Route*, std::string>;

    mutable Mutex mutex_;
    std::map<Key, Entry> entries_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
