#pragma once

#include <mutex>
#include <string>

/// The library's calls to the runtime as text, in order, one or more words per call. Threads: any.
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
