#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "refhost/talkback/LibavDecoder.h"
#include "tests/refhost/recording/MadeUnits.h"
#include "tests/refhost/talkback/AudioSamples.h"

namespace refhost
{
namespace test
{

/// A tone as PCMU or PCMA, in blocks of any length.
class TelephoneTone
{
public:
    static constexpr double hertz = 400;

    explicit TelephoneTone(Codec codec, int channels = 1)
    {
        MediaFormat made = *MadeUnits::audioFormat(codec);
        made.channels = channels;
        format = std::make_shared<const MediaFormat>(made);
        std::vector<std::uint8_t> all(256);
        for (std::size_t i = 0; i < all.size(); ++i)
        {
            all[i] = static_cast<std::uint8_t>(i);
        }
        LibavDecoder::make(codec, "", {made.sampleRate, 1})->decode(all.data(), all.size(), values_);
    }

    /// \param at  seconds
    EncodedUnitPtr block(double at, std::size_t frames) const
    {
        auto unit = std::make_shared<EncodedUnit>();
        unit->format = format;
        for (std::size_t i = 0; i < frames; ++i)
        {
            const double time = at + static_cast<double>(i) / format->sampleRate;
            const std::uint8_t code = codeOf(10000 * std::sin(2 * pi * hertz * time));
            unit->bytes.insert(unit->bytes.end(), static_cast<std::size_t>(format->channels), code);
        }
        unit->captureTime = MadeUnits::capturedAt(at);
        unit->decodeTime = unit->captureTime;
        unit->keyFrame = true;
        return unit;
    }

    std::shared_ptr<const MediaFormat> format;

private:
    std::uint8_t codeOf(double value) const
    {
        std::size_t best = 0;
        for (std::size_t i = 0; i < values_.size(); ++i)
        {
            best = std::abs(values_[i] - value) < std::abs(values_[best] - value) ? i : best;
        }
        return static_cast<std::uint8_t>(best);
    }

    Samples values_;
};

}  // namespace test
}  // namespace refhost
