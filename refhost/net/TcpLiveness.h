#pragma once

#include <chrono>
#include <optional>

namespace refhost
{

/// Judges by TCP itself whether a peer still answers, independent of its program: a paused player reads
/// nothing for minutes while its system continues to answer. Threads: any; no state.
class TcpLiveness
{
public:
    /// Makes the system probe idle peers, and peers with a zero receive window, often enough for silence().
    /// The connection of a dead idle peer fails before `timeout`.
    /// \param listener  listening socket; accepted connections inherit its settings
    static void configure(int listener, std::chrono::seconds timeout);

    /// Time since the peer last answered. A peer with a zero window that answered every window probe counts as
    /// answering now, because the system spaces those probes up to two minutes apart.
    /// \returns nothing when the connection is closed or the system does not report it
    static std::optional<std::chrono::milliseconds> silence(int descriptor);
};

}  // namespace refhost
