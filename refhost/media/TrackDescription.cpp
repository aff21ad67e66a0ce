#include "refhost/media/TrackDescription.h"

#include <tuple>
#include <vector>

namespace refhost
{
namespace
{

struct Parameter
{
    const char* field;
    bool required;
};

/// The fields of the caps that make up the format parameters of a coding, in the order in which they are
/// told.
std::vector<Parameter> parametersOf(const std::string& encodingName)
{
    if (encodingName == "H264")
    {
        return {{"packetization-mode", true}, {"profile-level-id", true}, {"sprop-parameter-sets", true}};
    }
    if (encodingName == "H265")
    {
        return {{"sprop-vps", true}, {"sprop-sps", true}, {"sprop-pps", true}};
    }
    if (encodingName == "MPEG4-GENERIC")
    {
        return {{"streamtype", false},     {"profile-level-id", true}, {"mode", true},
                {"config", true},          {"sizelength", true},       {"indexlength", true},
                {"indexdeltalength", true}};
    }
    return {};
}

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

bool addFormatParameters(const GstStructure* fields, SubMediaInfo& track)
{
    for (const Parameter& parameter : parametersOf(track.encodingName))
    {
        const std::string value = textOf(fields, parameter.field);
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
        track.formatParameters += std::string(parameter.field) + '=' + value;
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
    SubMediaInfo track;
    track.trackId = trackId;
    track.mediaType = textOf(fields, "media");
    track.encodingName = textOf(fields, "encoding-name");
    track.payloadType = numberOf(fields, "payload");
    track.clockRate = numberOf(fields, "clock-rate");
    if (track.mediaType.empty() || track.encodingName.empty() || track.clockRate <= 0)
    {
        return false;
    }
    if (!addFormatParameters(fields, track))
    {
        return false;
    }
    if (track.mediaType == "audio")
    {
        track.channels = 1;
    }
    if (track.encodingName == "PCMU" || track.encodingName == "PCMA")
    {
        track.bitRate = 64;
    }
    if (mediaCaps != nullptr && gst_caps_get_size(mediaCaps) > 0)
    {
        addMedia(gst_caps_get_structure(mediaCaps, 0), track);
    }
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
