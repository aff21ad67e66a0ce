#pragma once

#include <gst/gst.h>

#include <optional>
#include <string>
#include <vector>

#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

namespace refhost
{

/// What the codec table says in GStreamer's words. Threads: any; no state.
class GstCodec
{
public:
    /// \returns the codec of media with these caps; nothing when this server cannot send them as they are
    static std::optional<Codec> of(const GstCaps* caps);

    /// Caps of everything that is sent without encoding it again, and of raw video and audio.
    /// \param configured  the stream's codecs
    /// \param byRtp       the media come from another RTP sender
    static GstValuePtr<GstCaps> acceptedCaps(const std::vector<Codec>& configured, bool byRtp);

    /// What brings encoded media into the one form that is sent and recorded, as a launch line.
    static std::string parserLine(Codec codec);

    /// The payloader without its properties for size, as a launch line.
    static std::string payloaderLine(Codec codec);

private:
    static bool passes(Codec codec, const std::vector<Codec>& configured, bool byRtp);
};

}  // namespace refhost
