#include "refhost/media/TrackDescription.h"

#include <tuple>

#include "refhost/media/Codec.h"

namespace refhost
{
namespace
{

std::string textOf(const GstStructure* fields, const char* name)
{
    const char* text = gst_structure_get_string(fields, name);
    return text == nullptr ? std::string() : std::string(text);
}

int numberOf(const GstStructure* fields, const char* name)
{
    int number = 0;
    gst_structure_get_int(fields, name, &number);
    return number;
}

bool addFormatParameters(const GstStructure* fields, const CodecInfo& info, SubMediaInfo& track)
{
    for (const CodecInfo::FormatParameter& parameter : info.formatParameters)
    {
        const std::string value = textOf(fields, parameter.name);
        if (value.empty())
        {
            if (parameter.required)
            {
                return false;
            }
            continue;
        }
        if (!track.formatParameters.empty())
        {
            track.formatParameters += ';';
        }
        track.formatParameters += std::string(parameter.name) + '=' + value;
    }
    return true;
}

void addMedia(const GstStructure* fields, SubMediaInfo& track)
{
    if (track.mediaType == "audio")
    {
        const int channels = numberOf(fields, "channels");
        track.channels = channels > 0 ? channels : track.channels;
        return;
    }
    track.width = numberOf(fields, "width");
    track.height = numberOf(fields, "height");
    int numerator = 0;
    int denominator = 0;
    if (gst_structure_get_fraction(fields, "framerate", &numerator, &denominator) && denominator > 0)
    {
        track.frameRate = static_cast<double>(numerator) / denominator;
    }
}

}  // namespace

bool describeTrack(const GstCaps* rtpCaps, const GstCaps* mediaCaps, const std::string& trackId,
                   SubMediaInfo& out)
{
    if (rtpCaps == nullptr || gst_caps_get_size(rtpCaps) == 0)
    {
        return false;
    }
    const GstStructure* fields = gst_caps_get_structure(rtpCaps, 0);
    const std::optional<Codec> codec = codecEncodedAs(textOf(fields, "encoding-name"));
    if (!codec)
    {
        return false;
    }
    const CodecInfo& info = infoOf(*codec);
    SubMediaInfo track;
    track.trackId = trackId;
    track.mediaType = textOf(fields, "media");
    track.encodingName = info.encodingName;
    track.bitRate = info.bitRate;
    track.payloadType = numberOf(fields, "payload");
    track.clockRate = numberOf(fields, "clock-rate");
    if (track.mediaType.empty() || track.clockRate <= 0 || !addFormatParameters(fields, info, track))
    {
        return false;
    }
    if (track.mediaType == "audio")
    {
        track.channels = 1;
    }
    if (mediaCaps != nullptr && gst_caps_get_size(mediaCaps) > 0)
    {
        addMedia(gst_caps_get_structure(mediaCaps, 0), track);
    }
    track.channels = info.channels > 0 ? info.channels : track.channels;
    out = track;
    return true;
}

bool sameDescription(const SubMediaInfo& left, const SubMediaInfo& right)
{
    const auto all = [](const SubMediaInfo& track)
    {
        return std::tie(track.trackId, track.mediaType, track.encodingName, track.formatParameters,
                        track.payloadType, track.clockRate, track.channels, track.bitRate, track.width,
                        track.height, track.frameRate);
    };
    return all(left) == all(right) && left.getAudioBackInfoFlag() == right.getAudioBackInfoFlag();
}

}  // namespace refhost
