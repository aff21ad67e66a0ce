#pragma once
// Tested by tests/refhost/rtsp/session/OfferedKeys_test.cpp.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/rtp/srtp/SrtpKey.h"

namespace refhost
{

/// The SRTP keys that descriptions on one connection announced, for the SETUP requests that follow.
/// Threads: the connection's.
class OfferedKeys
{
public:
    /// Descriptions whose keys are kept; a further one drops the oldest.
    static constexpr std::size_t maxPresentations = 8;

    struct Track
    {
        std::string id;
        SrtpKey key;
    };

    struct Offer
    {
        std::string presentation;
        std::vector<Track> tracks;
        bool inCrypto =
            false;  ///< also in "crypto" attributes, whose readers request RTP/AVP and mean RTP/SAVP
    };

    /// Replaces what an earlier description of the same presentation announced.
    void add(Offer offer);
    void remove(std::string_view presentation);

    /// \param trackId  empty: the first track
    /// \returns null when no description announced one
    const SrtpKey* find(std::string_view presentation, std::string_view trackId) const;

    /// Whether RTP/AVP means RTP/SAVP for this presentation. \see Offer::inCrypto
    bool inCrypto(std::string_view presentation) const;

private:
    const Offer* offerOf(std::string_view presentation) const;

    std::vector<Offer> offers_;  // the oldest first; most connections have none
};

}  // namespace refhost
