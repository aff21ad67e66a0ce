#pragma once

#include <chrono>
#include <optional>

namespace refhost
{

/// What TCP itself knows of whether the other end of a connection still answers, whatever the program there
/// does: a paused player reads nothing for minutes while its system goes on answering.
/// Threads: any; no state.
class TcpLiveness
{
public:
    /// Has the system probe a peer often enough for silence() to judge it: an idle one, and one that has no
    /// room for more. A dead idle peer's connection fails before `timeout` is over.
    /// \param listener  listening socket; connections that it accepts have its settings
    static void configure(int listener, std::chrono::seconds timeout);

    /// How long ago the peer answered last. A peer that has no room for more, and has answered every
    /// probe of that so far, counts as answering now: the system spaces those probes up to two minutes apart.
    /// \returns nothing when the connection is over, or the system does not tell
    static std::optional<std::chrono::milliseconds> silence(int descriptor);
};

}  // namespace refhost
