#include "refhost/media/Codec.h"

#include <algorithm>

#include "refhost/base/IgnoreCase.h"

namespace refhost
{
namespace
{

constexpr int videoPayloadType = 96;
constexpr int audioPayloadType = 97;
constexpr int videoClockRate = 90000;

CodecInfo video(Codec codec, const char* name, const char* encodingName, const char* libavName)
{
    CodecInfo info;
    info.codec = codec;
    info.kind = MediaKind::video;
    info.name = name;
    info.encodingName = encodingName;
    info.libavName = libavName;
    info.payloadType = videoPayloadType;
    info.clockRate = videoClockRate;
    return info;
}

CodecInfo audio(Codec codec, const char* name, const char* encodingName, const char* libavName)
{
    CodecInfo info;
    info.codec = codec;
    info.kind = MediaKind::audio;
    info.name = name;
    info.encodingName = encodingName;
    info.libavName = libavName;
    info.payloadType = audioPayloadType;
    return info;
}

/// RFC 6184.
CodecInfo h264()
{
    CodecInfo info = video(Codec::h264, "h264", "H264", "h264");
    info.keyFrames = CodecInfo::KeyFrames::h264;
    info.formatParameters = {
        {"packetization-mode", true}, {"profile-level-id", true}, {"sprop-parameter-sets", true}};
    info.acceptedCaps = "video/x-h264";
    info.parser = "h264parse config-interval=-1";
    info.caps = "video/x-h264,stream-format=avc,alignment=au";
    info.payloader = "rtph264pay config-interval=0 aggregate-mode=zero-latency";
    // One slice per frame: its packets are of equal size. The small VBV buffer keeps key frames small.
    info.encoder =
        "x264enc tune=zerolatency speed-preset=superfast bitrate={bitRate} key-int-max={gop} "
        "threads={threads} "
        "sliced-threads=false aud=false trellis=false vbv-buf-capacity=400 option-string=\"scenecut=0\"";
    info.needsCodecData = true;
    return info;
}

/// RFC 7798.
CodecInfo h265()
{
    CodecInfo info = video(Codec::h265, "h265", "H265", "hevc");
    info.keyFrames = CodecInfo::KeyFrames::h265;
    info.formatParameters = {{"sprop-vps", true}, {"sprop-sps", true}, {"sprop-pps", true}};
    info.acceptedCaps = "video/x-h265";
    info.parser = "h265parse config-interval=-1";
    info.caps = "video/x-h265,stream-format=hvc1,alignment=au";
    info.payloader = "rtph265pay config-interval=0 aggregate-mode=zero-latency";
    info.encoder =
        "x265enc tune=zerolatency speed-preset=ultrafast bitrate={bitRate} key-int-max={gop} "
        "option-string=\"scenecut=0:bframes=0:pools=1:frame-threads=1:log-level=0:"
        "vbv-maxrate={bitRate}:vbv-bufsize={bitRateBuffer}\"";
    info.needsCodecData = true;
    return info;
}

/// RFC 2435: baseline JPEG of 4:2:0 or 4:2:2 with the standard Huffman tables, and sizes in blocks of 8 pixels.
CodecInfo mjpeg()
{
    CodecInfo info = video(Codec::mjpeg, "mjpeg", "JPEG", "mjpeg");
    info.payloadType = 26;
    info.maxSide = 2040;
    info.sideStep = 8;
    info.acceptedCaps = "image/jpeg";
    info.passThrough = CodecInfo::PassThrough::rtpAlone;
    info.caps = "image/jpeg";
    info.payloader = "rtpjpegpay";
    info.encoder = "jpegenc quality=85";
    info.encodedBitRate = 0;
    return info;
}

/// RFC 3640, mode AAC-hbr.
CodecInfo aac()
{
    constexpr std::uint32_t samplesOfUnit = 1024;
    CodecInfo info = audio(Codec::aac, "aac", "MPEG4-GENERIC", "aac");
    info.formatParameters = {{"streamtype", false},     {"profile-level-id", true}, {"mode", true},
                             {"config", true},          {"sizelength", true},       {"indexlength", true},
                             {"indexdeltalength", true}};
    info.samplesIn = [](const std::uint8_t*, std::size_t, int) { return samplesOfUnit; };
    info.acceptedCaps = "audio/mpeg,mpegversion=(int)4,stream-format=(string){raw,adts}";
    info.parser = "aacparse";
    info.caps = "audio/mpeg,mpegversion=4,stream-format=raw";
    info.payloader = "rtpmp4gpay";
    info.encoder = "audio/x-raw,rate=16000,channels=1 ! avenc_aac bitrate=64000";
    info.encodedBitRate = 64;
    info.needsCodecData = true;
    info.talkBackRate = 16000;
    // AudioSpecificConfig 1408: AAC-LC, 16000 Hz, one channel. Profile 15 is AAC Profile, level 1 (RFC 3640,
    // section 4.1, with ISO 14496-1).
    info.talkBackParameters =
        "streamtype=5;profile-level-id=15;mode=AAC-hbr;config=1408;sizelength=13;indexlength=3;"
        "indexdeltalength=3";
    return info;
}

/// G.711: one byte is one sample (RFC 3551, section 4.5.14). The static payload types are for 8000 Hz and one
/// channel only.
CodecInfo g711(CodecInfo info, int payloadType)
{
    info.payloadType = payloadType;
    info.clockRate = 8000;
    info.bitRate = 64;
    info.unitEnd = CodecInfo::UnitEnd::packet;
    info.samplesIn = [](const std::uint8_t*, std::size_t size, int channels)
    {
        const auto width = static_cast<std::size_t>(channels);
        return size % width == 0 ? static_cast<std::uint32_t>(size / width) : 0;
    };
    info.encodedBitRate = 64;
    info.talkBackRate = 8000;
    return info;
}

// The encoders of G.711 get blocks of 20 ms, whatever the input's block size.

CodecInfo pcmu()
{
    CodecInfo info = g711(audio(Codec::pcmu, "pcmu", "PCMU", "pcm_mulaw"), 0);
    info.acceptedCaps = "audio/x-mulaw,rate=(int)8000,channels=(int)1";
    info.caps = "audio/x-mulaw";
    info.payloader = "rtppcmupay max-ptime=20000000";
    info.encoder =
        "audio/x-raw,format=S16LE,layout=interleaved,rate=8000,channels=1 ! "
        "audiobuffersplit output-buffer-duration=1/50 ! mulawenc";
    return info;
}

CodecInfo pcma()
{
    CodecInfo info = g711(audio(Codec::pcma, "pcma", "PCMA", "pcm_alaw"), 8);
    info.acceptedCaps = "audio/x-alaw,rate=(int)8000,channels=(int)1";
    info.caps = "audio/x-alaw";
    info.payloader = "rtppcmapay max-ptime=20000000";
    info.encoder =
        "audio/x-raw,format=S16LE,layout=interleaved,rate=8000,channels=1 ! "
        "audiobuffersplit output-buffer-duration=1/50 ! alawenc";
    return info;
}

/// Samples at 48 kHz in a packet (RFC 6716, section 3); 0 for a malformed one.
std::uint32_t opusSamples(const std::uint8_t* packet, std::size_t size)
{
    constexpr std::uint32_t perMillisecond = 48;
    constexpr std::uint32_t maxMilliseconds = 120;
    constexpr std::array<std::uint32_t, 4> silk{10, 20, 40, 60};  // milliseconds
    constexpr unsigned firstHybrid = 12;
    constexpr unsigned firstCelt = 16;
    if (size == 0)
    {
        return 0;
    }
    const unsigned configuration = packet[0] >> 3U;
    std::uint32_t frame = 0;
    if (configuration < firstHybrid)
    {
        frame = silk.at(configuration % 4) * perMillisecond;
    }
    else if (configuration < firstCelt)
    {
        frame = silk.at(configuration % 2) * perMillisecond;
    }
    else
    {
        frame = perMillisecond * 5 / 2 << configuration % 4;
    }
    const unsigned code = packet[0] & 3U;
    const std::uint32_t frames = code == 0 ? 1 : code < 3 ? 2 : size > 1 ? packet[1] & 0x3fU : 0;
    const std::uint32_t samples = frames * frame;
    return samples <= maxMilliseconds * perMillisecond ? samples : 0;
}

/// The identification header with no samples to skip (RFC 7845, section 5.1): a recording starts within a
/// stream.
std::vector<std::uint8_t> opusHead(int channels)
{
    constexpr std::array<std::uint8_t, 4> rate{0x80, 0xbb, 0, 0};  // 48000, little endian
    std::vector<std::uint8_t> head{
        'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1, static_cast<std::uint8_t>(channels), 0, 0};
    head.insert(head.end(), rate.begin(), rate.end());
    head.insert(head.end(), {0, 0, 0});  // gain; one stream of one or two channels
    return head;
}

/// RFC 7587: an RTP packet holds one Opus packet; SDP always names two channels.
CodecInfo opus()
{
    CodecInfo info = audio(Codec::opus, "opus", "opus", "opus");
    info.clockRate = 48000;
    info.channels = 2;
    info.formatParameters = {{"sprop-maxcapturerate", false}, {"sprop-stereo", false}};
    info.unitEnd = CodecInfo::UnitEnd::packet;
    info.samplesIn = [](const std::uint8_t* packet, std::size_t size, int)
    { return opusSamples(packet, size); };
    info.acceptedCaps = "audio/x-opus,channel-mapping-family=(int)0,channels=(int)[1,2]";
    info.passThrough = CodecInfo::PassThrough::whenConfigured;
    info.parser = "opusparse";
    info.caps = "audio/x-opus,channel-mapping-family=(int)0";
    info.payloader = "rtpopuspay";
    info.encoder = "audio/x-raw,rate=48000,channels=[1,2] ! opusenc bitrate=64000";
    info.encodedBitRate = 64;
    info.makeCodecData = opusHead;
    info.talkBackRate = 48000;
    return info;
}

CodecInfo entryOf(Codec codec)
{
    switch (codec)
    {
        case Codec::h264:
            return h264();
        case Codec::h265:
            return h265();
        case Codec::aac:
            return aac();
        case Codec::pcmu:
            return pcmu();
        case Codec::pcma:
            return pcma();
        case Codec::opus:
            return opus();
        case Codec::mjpeg:
            return mjpeg();
    }
    return {};
}

using Table = std::array<CodecInfo, allCodecs.size()>;

const Table& table()
{
    static const Table entries = []
    {
        Table made;
        for (const Codec codec : allCodecs)
        {
            made.at(static_cast<std::size_t>(codec)) = entryOf(codec);
        }
        return made;
    }();
    return entries;
}

template <class Fits>
std::optional<Codec> findCodec(Fits fits)
{
    const auto found = std::find_if(table().begin(), table().end(), fits);
    return found == table().end() ? std::nullopt : std::optional(found->codec);
}

}  // namespace

const CodecInfo& infoOf(Codec codec)
{
    return table().at(static_cast<std::size_t>(codec));
}

bool isVideo(Codec codec)
{
    return infoOf(codec).kind == MediaKind::video;
}

const char* trackIdOf(MediaKind kind)
{
    switch (kind)
    {
        case MediaKind::video:
            return "trackID=0";
        case MediaKind::audio:
            return "trackID=1";
    }
    return "";
}

const char* trackIdOf(Codec codec)
{
    return trackIdOf(infoOf(codec).kind);
}

std::optional<Codec> codecNamed(std::string_view name)
{
    return findCodec([name](const CodecInfo& info) { return name == info.name; });
}

const char* nameOf(const std::optional<Codec>& codec)
{
    return codec ? infoOf(*codec).name : "none";
}

std::optional<Codec> codecEncodedAs(std::string_view encodingName)
{
    return findCodec([encodingName](const CodecInfo& info)
                     { return equalsIgnoringCase(info.encodingName, encodingName); });
}

std::optional<Codec> codecInLibav(std::string_view libavName)
{
    return findCodec([libavName](const CodecInfo& info) { return libavName == info.libavName; });
}

std::vector<std::string_view> codecChoices(MediaKind kind, bool talkBack)
{
    std::vector<std::string_view> names;
    for (const Codec codec : allCodecs)
    {
        const CodecInfo& info = infoOf(codec);
        if (info.kind == kind && (!talkBack || info.talkBackRate > 0))
        {
            names.emplace_back(info.name);
        }
    }
    names.emplace_back("none");
    return names;
}

}  // namespace refhost
