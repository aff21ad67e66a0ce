#pragma once
// Tested by tests/refhost/capture/CameraCondition_test.cpp.

#include <string>
#include <utility>

namespace refhost
{

/// Why a run of a source ended.
struct SourceFailure
{
    enum class Cause
    {
        other,
        unreachable,  ///< no address, no connection
        refused,      ///< the camera answers and refuses what is asked of it
        silent        ///< it played, and sent nothing for too long
    };

    SourceFailure(std::string why,
                  Cause kind = Cause::other)  // NOLINT(google-explicit-constructor): most have no cause
        : text(std::move(why)), cause(kind)
    {
    }
    SourceFailure(const char* why) : text(why) {}  // NOLINT(google-explicit-constructor)

    std::string text;  ///< for the log: one line, free of credentials
    Cause cause = Cause::other;
    bool untried = false;  ///< the source was left alone, because of an earlier end that was reported
};

}  // namespace refhost
