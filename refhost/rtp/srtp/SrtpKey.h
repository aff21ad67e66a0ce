#pragma once
// Tested by tests/refhost/rtp/srtp/SrtpSealer_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "refhost/rtp/srtp/SrtpSuite.h"

namespace refhost
{

/// A master key with its salt, and the suite that it is for. Never logged; its memory is wiped when it ends.
/// Threads: as a plain value.
class SrtpKey
{
public:
    /// A new key of the system's random bytes.
    static SrtpKey random(SrtpSuite suite);

    /// \param bytes  the key and then the salt
    /// \returns nothing when the size is not that of the suite
    static std::optional<SrtpKey> of(SrtpSuite suite, const std::uint8_t* bytes, std::size_t size);

    ~SrtpKey();
    SrtpKey(const SrtpKey&) = default;
    SrtpKey& operator=(const SrtpKey&) = default;

    SrtpSuite suite() const
    {
        return suite_;
    }

    /// The key and then the salt.
    const std::uint8_t* data() const
    {
        return bytes_.data();
    }

    std::size_t size() const;

    bool operator==(const SrtpKey& other) const;

private:
    explicit SrtpKey(SrtpSuite suite) : suite_(suite) {}

    SrtpSuite suite_;
    std::array<std::uint8_t, 30> bytes_{};
};

}  // namespace refhost
