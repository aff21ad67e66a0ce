#pragma once

#include <string>

namespace refhost
{

/// Checks whether a presentation can be described now. It is called before the library, which would report a
/// missing description as a failure.
///
/// When the result is false, the source was started, and ChangeSignal announces when to check again. A
/// presentation that cannot be described at all (an invalid URL, a failed stream) is ready: the library
/// returns the error. Threads: any; never waits.
class DescriptionReadiness
{
public:
    /// \param presentation  as "orv/live/1/0"
    static bool live(const std::string& presentation);
    /// \param presentation  as "orv/multicast/1/0"
    static bool multicast(const std::string& presentation);
    /// False until the recording index is open.
    static bool recorded(const std::string& presentation);
};

}  // namespace refhost
