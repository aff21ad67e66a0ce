#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// Puts the packets of one source back into the order in which they were sent, as long as that costs little
/// time: a packet that is missed is waited for until some time has passed or some packets have come after it.
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
        late,      ///< its turn is over; not taken
        duplicate  ///< it is here already; not taken
    };

    enum class Next
    {
        none,     ///< nothing is here
        waiting,  ///< something is here, but not what comes next
        packet
    };

    /// \param maxWait  how long a missing packet is waited for
    explicit ReorderWindow(Duration maxWait);

    /// Forgets everything; the next packet is the first one.
    void reset();

    Added add(Packet&& packet);

    /// Takes what comes next.
    /// \param[out] lost  how many packets before it were given up
    Next take(MonotonicTime now, Packet& out, std::uint32_t& lost);

private:
    const Duration maxWait_;
    bool began_ = false;
    std::uint32_t expected_ = 0;
    std::map<std::uint32_t, Packet> held_;
};

}  // namespace refhost
