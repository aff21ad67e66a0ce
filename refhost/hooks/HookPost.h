#pragma once
// Tested by tests/refhost/hooks/HookPost_test.cpp.

#include <cstddef>
#include <string>
#include <string_view>

#include "refhost/hooks/HookStop.h"

namespace refhost
{

/// Posts JSON to a URL of a hook. Redirects are not followed. Threads: any.
class HookPost
{
public:
    /// Bytes of an answer beyond which the request is ended.
    static constexpr std::size_t maxAnswer = 65536;

    /// Whether `target` is an http:// or https:// URL instead of a command.
    static bool isUrl(std::string_view target);

    /// Posts `input` as application/json, until the answer is complete, the deadline, or stop(). Certificates of https://
    /// are verified.
    static HookOutcome run(const std::string& url, const std::string& input,
                           HookStop::Clock::time_point deadline, const HookStop& stop);
};

}  // namespace refhost
