#include "refhost/media/GstCodec.h"

#include <fmt/format.h>

#include <algorithm>

namespace refhost
{

std::optional<Codec> GstCodec::of(const GstCaps* caps)
{
    if (caps == nullptr || gst_caps_get_size(caps) == 0)
    {
        return std::nullopt;
    }
    const auto found = std::find_if(
        allCodecs.begin(), allCodecs.end(),
        [caps](Codec codec)
        {
            const GstValuePtr<GstCaps> accepted(gst_caps_from_string(infoOf(codec).acceptedCaps));
            return gst_caps_can_intersect(accepted.get(), caps) != FALSE;
        });
    return found == allCodecs.end() ? std::nullopt : std::optional(*found);
}

GstValuePtr<GstCaps> GstCodec::acceptedCaps(const std::vector<Codec>& configured, bool byRtp)
{
    std::string text;
    for (const Codec codec : allCodecs)
    {
        if (passes(codec, configured, byRtp))
        {
            text.append(infoOf(codec).acceptedCaps).append("; ");
        }
    }
    return GstValuePtr<GstCaps>(gst_caps_from_string((text + "video/x-raw; audio/x-raw").c_str()));
}

bool GstCodec::passes(Codec codec, const std::vector<Codec>& configured, bool byRtp)
{
    const bool isConfigured = std::find(configured.begin(), configured.end(), codec) != configured.end();
    switch (infoOf(codec).passThrough)
    {
        case CodecInfo::PassThrough::always:
            return true;
        case CodecInfo::PassThrough::whenConfigured:
            return isConfigured;
        case CodecInfo::PassThrough::rtpAlone:
            return isConfigured && byRtp;
    }
    return false;
}

std::string GstCodec::parserLine(Codec codec)
{
    const CodecInfo& info = infoOf(codec);
    return info.parser == nullptr ? "identity silent=true"
                                  : fmt::format("{} ! capsfilter caps={}", info.parser, info.caps);
}

std::string GstCodec::payloaderLine(Codec codec)
{
    const CodecInfo& info = infoOf(codec);
    return fmt::format("{} pt={}", info.payloader, info.payloadType);
}

}  // namespace refhost
