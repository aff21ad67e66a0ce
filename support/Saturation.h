#pragma once

#include <cstdint>
#include <limits>

#include "support/Export.h"

/// Conversions from double to integers that have a result for every double on every platform, where the
/// language's own has none for what does not fit. Fractions are dropped, what lies outside of the type
/// becomes the nearer end of its range, and what is no number becomes 0.
class OV_INTERNAL Saturation
{
public:
    /// 0 to 4294967295.
    static constexpr std::uint32_t toUnsigned32(double value)
    {
        // Written so that a NaN, which compares false with everything, takes this branch too.
        if (!(value >= 1.0))
        {
            return 0;
        }
        if (value >= 4294967295.0)
        {
            return 4294967295u;
        }
        return static_cast<std::uint32_t>(value);
    }

    static constexpr std::int32_t toSigned32(double value)
    {
        if (value >= 2147483647.0)
        {
            return std::numeric_limits<std::int32_t>::max();
        }
        if (value <= -2147483648.0)
        {
            return std::numeric_limits<std::int32_t>::min();
        }
        // Only a NaN differs from itself.
        return value == value ? static_cast<std::int32_t>(value) : 0;
    }
};
