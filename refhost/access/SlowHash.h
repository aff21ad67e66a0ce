#pragma once

#include <string>

namespace refhost
{

/// Memory-hard hashes of passwords: yescrypt as libcrypt makes it, 16 MiB and some 10 ms each. Not for an event
/// loop. Threads: any; no state.
class SlowHash
{
public:
    /// \returns a hash of the form "$y$…" with a salt of its own
    /// \throws std::runtime_error when the system's libcrypt has no yescrypt, or there is no memory
    static std::string make(const std::string& password);

    /// \returns false also for a hash that libcrypt does not know
    static bool verify(const std::string& password, const std::string& hash);
};

}  // namespace refhost
