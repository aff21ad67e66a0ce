#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hostapi/description/RTPPacketInfo.h"
#include "live/IRTSPControllerFactory.h"
#include "refhost/base/Mutex.h"
#include "support/SafePointer.h"

namespace refhost
{

/// Tells the packet that the last PLAY of a track starts with; false when it is not known.
using FirstPacketFunction =
    std::function<bool(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out)>;

/// Whether a presentation can be described now. When it returns false the source starts, and ChangeSignal
/// announces that asking again makes sense.
using ReadyFunction = std::function<bool(const std::string& presentation)>;

/// Which factory serves which family of URLs. Filled before the server starts, constant afterwards.
class MediaRoutes
{
public:
    /// A family of URLs, and what serves it.
    struct Route
    {
        std::string prefix;  ///< "orv/live" for presentations as "orv/live/1/0"
        SafePointer<IRTSPControllerFactory> factory;
        ReadyFunction ready;              ///< asked before a controller is made; null: always
        FirstPacketFunction firstPacket;  ///< null: the controller's getCurRTPPacketInfo() tells
        bool recorded = false;            ///< has positions and speeds; otherwise live
        bool talkBack = false;            ///< its controllers take the audio that clients send
        /// Set where the sessions of a stream share what is sent to a group: then the methods of all of them
        /// follow one another, because their controllers change what they share in several steps.
        std::shared_ptr<Mutex> together;

        bool multicast() const
        {
            return together != nullptr;
        }
    };

    /// \param route  with a factory
    void add(const Route& route);

    /// Whether some presentations are sent to multicast groups.
    bool multicast() const;

    /// \returns null for a presentation of no known family
    const Route* find(std::string_view presentation) const;

private:
    std::vector<Route> routes_;
};

}  // namespace refhost
