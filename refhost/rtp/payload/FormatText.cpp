#include "refhost/rtp/payload/FormatText.h"

#include <algorithm>
#include <initializer_list>

#include "refhost/base/Base64.h"
#include "refhost/base/Hex.h"
#include "refhost/rtp/payload/ParameterSets.h"

namespace refhost
{
namespace
{

/// The sets of one kind as a list of base64 texts.
std::string setsText(const ParameterSets& sets, const NalSyntax& syntax, std::initializer_list<NalKind> kinds)
{
    std::string text;
    sets.forEach(
        [&](ByteSpan set)
        {
            if (std::find(kinds.begin(), kinds.end(), syntax.kindOf(set)) != kinds.end())
            {
                text.append(text.empty() ? "" : ",").append(base64Of(set.data, set.size));
            }
        });
    return text;
}

/// RFC 6184, section 8.1. The profile stands behind the version of the record.
bool h264Text(const MediaFormat& format, std::string& text)
{
    const NalSyntax& syntax = NalSyntax::of(Codec::h264);
    ParameterSets sets(syntax);
    if (!sets.takeRecord(format.codecData) || !sets.format())
    {
        return false;
    }
    text = "packetization-mode=1;profile-level-id=";
    for (std::size_t i = 1; i <= 3; ++i)
    {
        appendHex8(text, format.codecData[i]);
    }
    text += ";sprop-parameter-sets=" + setsText(sets, syntax, {NalKind::sequenceSet, NalKind::frameSet});
    return true;
}

/// RFC 7798, section 7.1.
bool h265Text(const MediaFormat& format, std::string& text)
{
    const NalSyntax& syntax = NalSyntax::of(Codec::h265);
    ParameterSets sets(syntax);
    if (!sets.takeRecord(format.codecData) || !sets.format())
    {
        return false;
    }
    text = "sprop-vps=" + setsText(sets, syntax, {NalKind::videoSet}) +
           ";sprop-sps=" + setsText(sets, syntax, {NalKind::sequenceSet}) +
           ";sprop-pps=" + setsText(sets, syntax, {NalKind::frameSet});
    return true;
}

/// RFC 3640, section 4.1. Level 2 of the AAC profile, or level 5 where that is too small (ISO/IEC 14496-3,
/// table 1.14).
bool aacText(const MediaFormat& format, std::string& text)
{
    constexpr int smallRate = 48000;
    if (format.codecData.empty())
    {
        return false;
    }
    const bool small = format.sampleRate <= smallRate && format.channels <= 2;
    text = std::string("streamtype=5;profile-level-id=") + (small ? "41" : "43") + ";mode=AAC-hbr;config=";
    for (const std::uint8_t byte : format.codecData)
    {
        appendHex8(text, byte);
    }
    text += ";sizelength=13;indexlength=3;indexdeltalength=3";
    return true;
}

}  // namespace

bool formatText(const MediaFormat& format, std::string& text)
{
    switch (format.codec)
    {
        case Codec::h264:
            return h264Text(format, text);
        case Codec::h265:
            return h265Text(format, text);
        case Codec::opus:
            text = format.channels == 2 ? "sprop-maxcapturerate=48000;sprop-stereo=1"
                                        : "sprop-maxcapturerate=48000;sprop-stereo=0";
            return true;
        case Codec::pcmu:
        case Codec::pcma:
        case Codec::mjpeg:
            text.clear();
            return true;
        case Codec::aac:
            return aacText(format, text);
    }
    return false;
}

}  // namespace refhost
