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

/// The codecs that this server sends, records, or accepts as talk-back.
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

/// All properties of one codec. To add a codec, add an entry in Codec.cpp.
///
/// GStreamer's and libav's properties are texts here, for the folders that link those libraries.
struct CodecInfo
{
    /// How key frames are detected in RTP packets.
    enum class KeyFrames
    {
        all,   ///< every unit is one
        h264,  ///< by the types of RFC 6184
        h265   ///< by the types of RFC 7798
    };

    /// What ends an access unit in a sequence of RTP packets.
    enum class UnitEnd
    {
        marker,  ///< the marker bit
        packet   ///< every packet is a unit of its own
    };

    /// Whether media that a source delivers in this codec are sent without transcoding.
    enum class PassThrough
    {
        always,          ///< whatever codec is configured
        whenConfigured,  ///< only when the stream is configured for this codec; otherwise transcoded
        rtpAlone         ///< the same, and only media received by RTP: others may exceed its limits
    };

    struct FormatParameter
    {
        const char* name;
        bool required;  ///< players cannot decode without it
    };

    Codec codec{};
    MediaKind kind{};

    // Names.
    const char* name = nullptr;          ///< in the configuration
    const char* encodingName = nullptr;  ///< in SDP, as registered for RTP
    const char* libavName = nullptr;     ///< in libavcodec, for files and for decoding talk-back

    // RTP and the description.
    int payloadType = 0;  ///< static (RFC 3551, section 6), or the dynamic one that this server uses
    int clockRate = 0;    ///< RTP clock rate in Hz; 0: the sample rate
    int channels = 0;     ///< in SDP; 0: those of the media
    int bitRate = 0;      ///< kbit/s, where the codec fixes it; otherwise 0
    std::vector<FormatParameter> formatParameters;  ///< in the order of SDP
    int maxSide = 0;                                ///< max width and height in RTP, pixels; 0: unlimited
    int sideStep = 1;                               ///< width and height are multiples of it, pixels
    UnitEnd unitEnd = UnitEnd::marker;
    KeyFrames keyFrames = KeyFrames::all;
    /// Samples per channel in a unit of audio, 0 for a malformed one; null for video.
    std::uint32_t (*samplesIn)(const std::uint8_t* unit, std::size_t size, int channels) = nullptr;

    // GStreamer.
    const char* acceptedCaps = nullptr;  ///< of media that can be sent without transcoding
    PassThrough passThrough = PassThrough::always;
    /// Launch line that converts `acceptedCaps` to `caps`; null where they are equal.
    const char* parser = nullptr;
    const char* caps = nullptr;       ///< of media as sent and recorded
    const char* payloader = nullptr;  ///< launch line, without payload type and MTU
    /// Launch line that encodes raw video of the right size, or converts raw audio and encodes it. Video
    /// lines hold the placeholders {bitRate} (kbit/s), {bitRateBuffer} (two fifths of it), {gop} and
    /// {threads}.
    const char* encoder = nullptr;

    // Encoding, files and talk-back.
    /// Encoder's output in kbit/s, 0 when unknown; nothing where the encoder uses the configured rate.
    std::optional<int> encodedBitRate;
    /// Decoders need the configuration record: parameter sets, AudioSpecificConfig.
    bool needsCodecData = false;
    /// Builds the configuration record for files where GStreamer provides none; null where it does or files
    /// need none.
    std::vector<std::uint8_t> (*makeCodecData)(int channels) = nullptr;
    /// Sample rate of talk-back in Hz; 0 for a codec without talk-back.
    int talkBackRate = 0;
    const char* talkBackParameters = "";  ///< format parameters of talk-back
};

/// Every codec, in the order in which lists of configuration values name them.
constexpr std::array<Codec, 7> allCodecs{Codec::h264, Codec::h265, Codec::mjpeg, Codec::pcmu,
                                         Codec::pcma, Codec::aac,  Codec::opus};

const CodecInfo& infoOf(Codec codec);

bool isVideo(Codec codec);

/// The track id depends on the kind of media only, so it is known before all tracks are.
/// \returns "trackID=0" for video, "trackID=1" for audio
const char* trackIdOf(MediaKind kind);
const char* trackIdOf(Codec codec);

/// \param name  in the configuration
/// \returns nothing for "none" and for unknown names
std::optional<Codec> codecNamed(std::string_view name);

/// \returns the codec's name in the configuration, "none" without a codec
const char* nameOf(const std::optional<Codec>& codec);

/// \param encodingName  in SDP, of either case
/// \returns nothing for unknown names
std::optional<Codec> codecEncodedAs(std::string_view encodingName);

/// \param libavName  as returned by avcodec_get_name()
/// \returns nothing for unknown names
std::optional<Codec> codecInLibav(std::string_view libavName);

/// Names that the configuration permits, "none" last.
/// \param talkBack  only codecs with talk-back
std::vector<std::string_view> codecChoices(MediaKind kind, bool talkBack = false);

}  // namespace refhost
