#include "refhost/rtsp/session/OfferedKeys.h"

#include <algorithm>
#include <utility>

namespace refhost
{

void OfferedKeys::add(Offer offer)
{
    remove(offer.presentation);
    if (offers_.size() >= maxPresentations)
    {
        offers_.erase(offers_.begin());
    }
    offers_.push_back(std::move(offer));
}

void OfferedKeys::remove(std::string_view presentation)
{
    offers_.erase(
        std::remove_if(offers_.begin(), offers_.end(),
                       [presentation](const Offer& offer) { return offer.presentation == presentation; }),
        offers_.end());
}

const SrtpKey* OfferedKeys::find(std::string_view presentation, std::string_view trackId) const
{
    const Offer* const offer = offerOf(presentation);
    if (offer == nullptr)
    {
        return nullptr;
    }
    for (const Track& track : offer->tracks)
    {
        if (trackId.empty() || track.id == trackId)
        {
            return &track.key;
        }
    }
    return nullptr;
}

bool OfferedKeys::inCrypto(std::string_view presentation) const
{
    const Offer* const offer = offerOf(presentation);
    return offer != nullptr && offer->inCrypto;
}

const OfferedKeys::Offer* OfferedKeys::offerOf(std::string_view presentation) const
{
    const auto found =
        std::find_if(offers_.begin(), offers_.end(),
                     [presentation](const Offer& offer) { return offer.presentation == presentation; });
    return found == offers_.end() ? nullptr : &*found;
}

}  // namespace refhost
