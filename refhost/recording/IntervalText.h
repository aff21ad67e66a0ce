#pragma once
// Tested by tests/refhost/recording/Recorder_test.cpp.

#include <string>

#include "refhost/base/Times.h"

namespace refhost
{

/// An interval of dates, for the log.
class IntervalText
{
public:
    /// \returns both in UTC and whole seconds, such as "2026-01-31T12:00:00Z to 2026-01-31T12:03:10Z"; one where they are
    ///          the same second
    static std::string of(WallTime first, WallTime last);
};

}  // namespace refhost
