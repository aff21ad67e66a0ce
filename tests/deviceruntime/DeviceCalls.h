#pragma once

#include <mutex>
#include <string>

/// What the library asked of the runtime, as text: one word or more a call, in their order. Threads: any.
class DeviceCalls
{
public:
    /// Adds a call.
    static void note(const std::string& call);
    /// The calls since the last time, joined by blanks.
    static std::string take();

private:
    static DeviceCalls& instance();

    std::mutex mutex_;
    std::string calls_;
};
