#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// Restores the sending order of one source's packets. A missing packet is waited for until a deadline, or
/// until several later packets have arrived.
///
/// Threads: one at a time.
class ReorderWindow
{
public:
    struct Packet
    {
        std::uint32_t sequence = 0;  ///< extended
        std::uint32_t timestamp = 0;
        bool marker = false;
        MonotonicTime arrival;
        std::vector<std::uint8_t> payload;
    };

    enum class Added
    {
        taken,
        late,      ///< its turn has passed; not taken
        duplicate  ///< held already; not taken
    };

    enum class Next
    {
        none,     ///< nothing is held
        waiting,  ///< something is held, but not the next packet
        packet
    };

    /// \param maxWait  how long a missing packet is waited for
    explicit ReorderWindow(Duration maxWait);

    /// Forgets everything; the next packet is the first one.
    void reset();

    Added add(Packet&& packet);

    /// Takes the next packet.
    /// \param[out] lost  packets before it that were given up
    Next take(MonotonicTime now, Packet& out, std::uint32_t& lost);

private:
    const Duration maxWait_;
    bool started_ = false;
    std::uint32_t expected_ = 0;
    std::map<std::uint32_t, Packet> held_;
};

}  // namespace refhost
