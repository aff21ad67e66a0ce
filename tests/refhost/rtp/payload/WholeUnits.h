#pragma once

#include <optional>
#include <vector>

#include "refhost/media/Codec.h"
#include "tests/refhost/rtp/payload/PayloadFixture.h"

namespace refhost::test
{

/// The NAL units in the packets of a frame of H.264 or H.265, as a receiver puts them together that relies on the
/// marks of fragments alone.
/// \returns nothing where fragments are missing
inline std::optional<std::vector<Bytes>> wholeUnitsOf(Codec codec, const std::vector<Bytes>& payloads)
{
    const bool h265 = codec == Codec::h265;
    const std::size_t header = h265 ? 2 : 1;
    const auto typeOf = [h265](const Bytes& unit)
    { return h265 ? unit.at(0) >> 1U & 0x3fU : unit.at(0) & 0x1fU; };
    std::vector<Bytes> units;
    bool open = false;
    for (const Bytes& payload : payloads)
    {
        const unsigned type = typeOf(payload);
        if (type != (h265 ? 49U : 28U))
        {
            if (open)
            {
                return std::nullopt;
            }
            std::size_t at = header;
            if (type != (h265 ? 48U : 24U))
            {
                units.push_back(payload);
                continue;
            }
            while (at < payload.size())
            {
                const std::size_t size = static_cast<std::size_t>(payload.at(at)) << 8U | payload.at(at + 1);
                const auto begin = payload.begin() + static_cast<std::ptrdiff_t>(at) + 2;
                units.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
                at += 2 + size;
            }
            continue;
        }
        const std::uint8_t flags = payload.at(header);
        if (((flags & 0x80U) != 0) == open)
        {
            return std::nullopt;
        }
        if (!open)
        {
            Bytes unit(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(header));
            unit[0] = static_cast<std::uint8_t>(h265 ? (unit[0] & 0x81U) | (flags & 0x3fU) << 1U
                                                     : (unit[0] & 0xe0U) | (flags & 0x1fU));
            units.push_back(unit);
        }
        units.back().insert(units.back().end(), payload.begin() + static_cast<std::ptrdiff_t>(header) + 1,
                            payload.end());
        open = (flags & 0x40U) == 0;
    }
    return open ? std::nullopt : std::make_optional(units);
}

}  // namespace refhost::test
