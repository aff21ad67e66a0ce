#pragma once

#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// Talk-back of the running server: sets up the talk-back manager and runs its worker while it exists, if any
/// camera offers talk-back.
///
/// Threads: one. Make it before clients connect, destroy it when they are gone.
class TalkBack
{
public:
    /// Does not open the output: that is tried when somebody talks.
    TalkBack(const ServerConfig& config, const DeviceInfoEx& device, const DeviceExAbility& ability,
             int platformType);
    /// Ends every remaining session and closes the output. Waits for the worker: at most a third of a second,
    /// unless the output is being opened.
    ~TalkBack();
    /// Starts it where another configuration is the first that offers talk-back.
    void setConfig(const ServerConfig& config);
    TalkBack(const TalkBack&) = delete;
    TalkBack& operator=(const TalkBack&) = delete;

private:
    const DeviceInfoEx device_;
    const DeviceExAbility ability_;
    const int platformType_;
    bool runs_ = false;
};

}  // namespace refhost
