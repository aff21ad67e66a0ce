#include "refhost/ingest/client/RtspClientOptions.h"

#include <algorithm>

namespace refhost
{

RtspClientOptions RtspClientOptions::bounded() const
{
    constexpr Duration maxTimeout = std::chrono::hours(24 * 365);
    RtspClientOptions options = *this;
    for (Duration* const each :
         {&options.openTimeout, &options.connectTimeout, &options.answerTimeout, &options.optionsTimeout,
          &options.silenceTimeout, &options.udpTimeout, &options.teardownTimeout})
    {
        *each = std::clamp<Duration>(*each, Duration::zero(), maxTimeout);
    }
    return options;
}

}  // namespace refhost
