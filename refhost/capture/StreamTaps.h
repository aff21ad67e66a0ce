#pragma once

#include <memory>
#include <string>

#include "refhost/base/Mutex.h"
#include "refhost/capture/SourceRun.h"

namespace refhost
{

/// The packet taps of a stream: one for each track and payload size that somebody receives.
///
/// Threads: any; a sink may detach itself while it is called.
class StreamTaps
{
public:
    /// \param payloadSize  max bytes of an RTP payload
    /// \returns true when the tap is new, so that the source has to learn of it
    bool add(const std::string& trackId, int payloadSize, std::shared_ptr<AccessUnitSink> sink);
    /// The sink is not called once this returns.
    /// \returns true when a tap has no sink any more
    bool remove(const AccessUnitSink* sink);
    /// The taps that have sinks; forgets the others.
    SourceRun::Taps inUse();

private:
    Mutex mutex_;
    SourceRun::Taps taps_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
