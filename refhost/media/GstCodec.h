#pragma once

#include <gst/gst.h>

#include <optional>
#include <string>
#include <vector>

#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

namespace refhost
{

/// The codec table in terms of GStreamer. Threads: any; no state.
class GstCodec
{
public:
    /// \returns the codec of media with these caps; nothing when they must be transcoded
    static std::optional<Codec> of(const GstCaps* caps);

    /// Caps of all media that are sent without transcoding, and of raw video and audio.
    /// \param configured  the stream's codecs
    /// \param byRtp       the media are received by RTP
    static GstValuePtr<GstCaps> acceptedCaps(const std::vector<Codec>& configured, bool byRtp);

    /// Whether media of a codec are sent without transcoding; arguments as for acceptedCaps().
    static bool passes(Codec codec, const std::vector<Codec>& configured, bool byRtp);

    /// Launch line that converts encoded media to the form that is sent and recorded.
    static std::string parserLine(Codec codec);

    /// Launch line of the payloader, without its size properties.
    static std::string payloaderLine(Codec codec);
};

}  // namespace refhost
