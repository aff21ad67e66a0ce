#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hostapi/description/RTPPacketInfo.h"
#include "live/IRTSPControllerFactory.h"
#include "refhost/base/SmallMutex.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Finds the first packet of a track's last PLAY; false when it is unknown.
using FirstPacketFunction =
    std::function<bool(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out)>;

/// Whether a presentation can be described now. If not, its source starts, and ChangeSignal announces when to
/// ask again.
using ReadyFunction = std::function<bool(const std::string& presentation)>;

/// Maps families of URLs to controller factories. Filled before the server starts, constant afterwards.
class MediaRoutes
{
public:
    /// A family of URLs and its factory.
    struct Route
    {
        std::string prefix;  ///< "orv/live" for presentations like "orv/live/1/0"
        SafePointer<IRTSPControllerFactory> factory;
        ReadyFunction ready;              ///< called before a controller is made; null: always ready
        FirstPacketFunction firstPacket;  ///< null: the controller's getCurRTPPacketInfo()
        bool recorded = false;            ///< supports positions and speeds; otherwise live
        bool talkBack = false;            ///< its controllers accept audio from clients
        /// A controller may serve several sessions at once, each with methods of its own.
        bool commonControllers = false;
        /// Set for multicast, where sessions of a stream share its transport: serializes the methods of all
        /// of them, because controllers change shared state in several steps.
        std::shared_ptr<SmallMutex> together;

        bool multicast() const
        {
            return together != nullptr;
        }
    };

    /// \param route  with a factory
    void add(const Route& route);

    /// Whether some route is multicast.
    bool multicast() const;

    /// \returns null when no route fits
    const Route* find(std::string_view presentation) const;

private:
    std::vector<Route> routes_;
};

}  // namespace refhost
