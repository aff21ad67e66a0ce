#pragma once

#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// Talk-back of the running server: sets the talk-back manager up and runs its worker for as long as it
/// lives, if any camera offers talk-back.
///
/// Threads: one. Make it before clients can come, destroy it when they are gone.
class TalkBack
{
public:
    /// An output that cannot be opened is no failure here: it is tried when somebody talks.
    TalkBack(const ServerConfig& config, const DeviceInfoEx& device, const DeviceExAbility& ability,
             int platformType);
    /// Ends every session that is left and closes the output; waits for the worker, a third of a second at
    /// most unless the output is being opened.
    ~TalkBack();
    TalkBack(const TalkBack&) = delete;
    TalkBack& operator=(const TalkBack&) = delete;

private:
    bool runs_ = false;
};

}  // namespace refhost
