#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Turns one client's encoded audio into samples for the output. One object for each talk-back session; it is
/// fed frames in the order in which they were recorded.
///
/// Threads: one at a time. No operation waits.
class TalkDecoder
{
public:
    /// Makes a decoder for a back-channel track.
    /// \param track   encodingName of an audio codec of the table, clockRate, channels, and for AAC the
    ///                AudioSpecificConfig in formatParameters ("config=<hex>")
    /// \param format  what the samples must be like
    /// \returns null for a codec that cannot be decoded here
    static std::unique_ptr<TalkDecoder> make(const SubMediaInfo& track, const PcmFormat& format);

    /// Whether make() can make a decoder for that track; makes none.
    static bool supports(const SubMediaInfo& track);

    virtual ~TalkDecoder() = default;

    /// Decodes one frame, \see TalkDepayloader::Frame.
    /// \param[in,out] samples  the decoded audio is appended; a codec with a delay may append it later
    /// \returns false for a frame that cannot be decoded; nothing is appended then
    virtual bool decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples) = 0;

    /// Makes up for audio that was lost between the frame before and the next one.
    /// \param ticks  how much is missing, in ticks of the track's clock; at most a fifth of a second
    /// \param[in,out] samples  as long a piece of audio is appended
    virtual void conceal(std::uint32_t ticks, std::vector<std::int16_t>& samples) = 0;

    /// The next frame does not continue what came before: after a pause, or from another sender.
    virtual void reset() = 0;
};

}  // namespace refhost
