#include "refhost/audio/TalkDecoder.h"

namespace refhost
{

std::unique_ptr<TalkDecoder> TalkDecoder::make(const SubMediaInfo&, const PcmFormat&)
{
    // No codec can be decoded yet: talk-back sessions are refused.
    return nullptr;
}

}  // namespace refhost
