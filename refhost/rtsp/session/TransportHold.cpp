#include "refhost/rtsp/session/TransportHold.h"

#include <exception>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{

TransportHold::~TransportHold()
{
    for (const SafePointer<RtpTransport>& transport : held_)
    {
        try
        {
            transport->release();
        }
        catch (const std::exception& error)
        {
            Log::error("letting packets go failed: {}", error.what());
        }
    }
}

void TransportHold::add(const SafePointer<RtpTransport>& transport)
{
    held_.push_back(transport);
    transport->hold();
}

void TransportHold::absorb(TransportHold& other)
{
    for (const SafePointer<RtpTransport>& transport : std::exchange(other.held_, {}))
    {
        held_.push_back(transport);
    }
}

}  // namespace refhost
