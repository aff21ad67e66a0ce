#pragma once

#include <cstdint>
#include <limits>

#include "support/Export.h"

/// Conversions from double to integers that are defined for every double on every platform, unlike the
/// language's own. Fractions are dropped, values out of range become the nearer end of the range, and NaN
/// becomes 0.
class OV_INTERNAL Saturation
{
public:
    /// 0 to 4294967295.
    static constexpr std::uint32_t toUnsigned32(double value)
    {
        // Not (value < 1.0): a NaN, which compares false with everything, must return here too.
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
