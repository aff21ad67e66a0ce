#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

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
        std::int64_t arrivalNs = 0;
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

    /// \param waitNs  how long a missing packet is waited for
    explicit ReorderWindow(std::int64_t waitNs);

    /// Forgets everything; the next packet is the first one.
    void reset();

    Added add(Packet&& packet);

    /// Takes what comes next.
    /// \param nowNs      clock of Packet::arrivalNs
    /// \param[out] lost  how many packets before it were given up
    Next take(std::int64_t nowNs, Packet& out, std::uint32_t& lost);

private:
    const std::int64_t waitNs_;
    bool began_ = false;
    std::uint32_t expected_ = 0;
    std::map<std::uint32_t, Packet> held_;
};

}  // namespace refhost
