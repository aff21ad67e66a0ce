#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace refhost
{

/// The codecs that this server sends and records, or takes as talk-back.
enum class Codec
{
    h264,
    h265,
    aac,
    pcmu,
    pcma,
    opus,
    mjpeg
};

enum class MediaKind
{
    video,
    audio
};

/// All that is known about one codec. A new codec is a new entry in Codec.cpp.
///
/// What concerns GStreamer and libav stands here as text, for the folders that are linked with them.
struct CodecInfo
{
    /// How a decoder's entry points are found in RTP packets and in parameter sets.
    enum class KeyFrames
    {
        all,   ///< every unit is one
        h264,  ///< by the types of RFC 6184
        h265   ///< by the types of RFC 7798
    };

    /// What ends an access unit in a run of RTP packets.
    enum class UnitEnd
    {
        marker,  ///< the marker bit
        packet   ///< every packet is a unit of its own
    };

    /// Whether media that a source delivers in this codec are sent without encoding them again.
    enum class PassThrough
    {
        always,          ///< whatever codec is configured
        whenConfigured,  ///< only for a stream that is configured for this codec; otherwise they are decoded
        rtpAlone         ///< the same, and only of media that came by RTP: others may not fit into it
    };

    struct FormatParameter
    {
        const char* name;
        bool required;  ///< a player can do nothing without it
    };

    Codec codec{};
    MediaKind kind{};

    // Names.
    const char* name = nullptr;          ///< in the configuration
    const char* encodingName = nullptr;  ///< in descriptions, as registered for RTP
    const char* libavName = nullptr;     ///< of the codec in libavcodec, for files and for decoding talk-back

    // RTP and the description.
    int payloadType = 0;  ///< the static one of RFC 3551, section 6, or the dynamic one that is used here
    int clockRate = 0;    ///< of RTP, Hz; 0 where it is the sample rate
    int channels = 0;     ///< that a description names; 0 where it names those of the media
    int bitRate = 0;      ///< kbit/s, where the codec fixes it; otherwise 0
    std::vector<FormatParameter> formatParameters;  ///< in the order in which they are told
    int maxSide = 0;                                ///< pixels of width and height that RTP can carry; 0: any
    int sideStep = 1;                               ///< of which width and height are multiples
    UnitEnd unitEnd = UnitEnd::marker;
    KeyFrames keyFrames = KeyFrames::all;
    /// Samples of one channel in a unit of audio, 0 for a malformed one; null for video.
    std::uint32_t (*samplesIn)(const std::uint8_t* unit, std::size_t size, int channels) = nullptr;

    // GStreamer.
    const char* acceptedCaps = nullptr;  ///< of media that can be sent without encoding them again
    PassThrough passThrough = PassThrough::always;
    /// Launch line that makes `caps` of whatever has `acceptedCaps`; null where that is the same.
    const char* parser = nullptr;
    const char* caps = nullptr;       ///< of what is sent and recorded
    const char* payloader = nullptr;  ///< launch line, without payload type and size
    /// Launch line that encodes raw video in the right size, or makes the right audio samples and encodes
    /// them. For video {bitRate} (kbit/s), {bitRateBuffer} (two fifths of it), {gop} and {threads} stand for
    /// settings.
    const char* encoder = nullptr;

    // Encoding, files and talk-back.
    /// kbit/s that the encoder makes, 0 when unknown; nothing where it heeds the configured rate.
    std::optional<int> encodedBitRate;
    /// A decoder needs the codec's configuration record: parameter sets, AudioSpecificConfig.
    bool needsCodecData = false;
    /// Makes the record that a file needs where GStreamer has none; null where it has one or files need none.
    std::vector<std::uint8_t> (*makeCodecData)(int channels) = nullptr;
    /// Hz of talk-back; 0 for a codec in which clients cannot talk.
    int talkBackRate = 0;
    const char* talkBackParameters = "";  ///< format parameters of talk-back
};

/// Every codec, in the order in which the configuration's values are listed.
constexpr std::array<Codec, 7> allCodecs{Codec::h264, Codec::h265, Codec::mjpeg, Codec::pcmu,
                                         Codec::pcma, Codec::aac,  Codec::opus};

const CodecInfo& infoOf(Codec codec);

bool isVideo(Codec codec);

/// Track ids follow the kind of media, so that they are known before all tracks are.
/// \returns "trackID=0" for video, "trackID=1" for audio
const char* trackIdOf(MediaKind kind);
const char* trackIdOf(Codec codec);

/// \returns the codec of that name in the configuration; nothing for "none" and for unknown names
std::optional<Codec> codecNamed(std::string_view name);

/// \returns the codec's name in the configuration, "none" for nothing
const char* nameOf(const std::optional<Codec>& codec);

/// \returns the codec with that encoding name in a description, in letters of either case; nothing for
/// another
std::optional<Codec> codecEncodedAs(std::string_view encodingName);

/// \param libavName  as avcodec_get_name() tells
std::optional<Codec> codecInLibav(std::string_view libavName);

/// Names that the configuration permits, "none" last. \param talkBack  only codecs in which clients can talk
std::vector<std::string_view> codecChoices(MediaKind kind, bool talkBack = false);

}  // namespace refhost
