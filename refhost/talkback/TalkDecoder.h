#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Decodes one client's audio to samples for the output. One object per talk-back session, fed with frames in
/// order.
///
/// Threads: one at a time. No operation waits.
class TalkDecoder
{
public:
    /// Makes a decoder for a back-channel track.
    /// \param track   encodingName of an audio codec of the table, clockRate, channels, and for AAC the
    ///                AudioSpecificConfig in formatParameters ("config=<hex>")
    /// \param format  the output's format
    /// \returns null for a codec that cannot be decoded
    static std::unique_ptr<TalkDecoder> make(const SubMediaInfo& track, const PcmFormat& format);

    /// Whether make() would make a decoder for the track.
    static bool supports(const SubMediaInfo& track);

    virtual ~TalkDecoder() = default;

    /// Decodes one frame, \see TalkDepayloader::Frame.
    /// \param[in,out] samples  the decoded audio is appended; a codec may delay it
    /// \returns false, with nothing appended, for a frame that cannot be decoded
    virtual bool decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples) = 0;

    /// Conceals audio lost between the previous frame and the next.
    /// \param ticks  what is missing, in ticks of the track's clock; at most a fifth of a second
    /// \param[in,out] samples  audio of that length is appended
    virtual void conceal(std::uint32_t ticks, std::vector<std::int16_t>& samples) = 0;

    /// The next frame does not continue the previous one: after a pause, or from another sender.
    virtual void reset() = 0;
};

}  // namespace refhost
