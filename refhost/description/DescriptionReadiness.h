#pragma once

#include <string>

namespace refhost
{

/// Whether a presentation can be described at once, asked before the library is: it takes a description that
/// is not there yet for a failure and reports it.
///
/// Where the answer is false the source starts, and ChangeSignal announces that asking again makes sense.
/// What cannot be described at all (a URL that means nothing, a stream that failed) is ready: the library has
/// the answer. Threads: any; nothing here waits.
class DescriptionReadiness
{
public:
    /// \param presentation  as "orv/live/1/0"
    static bool live(const std::string& presentation);
    /// \param presentation  as "orv/multicast/1/0"
    static bool multicast(const std::string& presentation);
    /// False while the index of the recordings is not open yet.
    static bool recorded(const std::string& presentation);
};

}  // namespace refhost
