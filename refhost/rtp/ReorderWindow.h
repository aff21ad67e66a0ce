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

    /// Networks reorder neighbours: enough for packets that come one by one.
    static constexpr std::size_t usualMaxHeld = 8;

    /// \param maxWait  how long a missing packet is waited for
    /// \param maxHeld  packets behind a missing one, after which it counts as lost
    explicit ReorderWindow(Duration maxWait, std::size_t maxHeld = usualMaxHeld);

    /// Forgets everything; the next packet is the first one.
    void reset();

    Added add(Packet&& packet);

    /// Passes a packet by that is the next one while nothing is held: it need not be added.
    /// \returns false when it has to be
    bool passes(std::uint32_t sequence);

    /// Takes the next packet.
    /// \param[out] lost  packets before it that were given up
    Next take(MonotonicTime now, Packet& out, std::uint32_t& lost);

    /// When the missing packet that take() waits for is given up; the end of time when nothing is held.
    MonotonicTime waitsUntil() const;

private:
    const Duration maxWait_;
    const std::size_t maxHeld_;
    bool started_ = false;
    std::uint32_t expected_ = 0;
    std::map<std::uint32_t, Packet> held_;
};

}  // namespace refhost
