#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/media/AccessUnit.h"
#include "refhost/media/Codec.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/rtp/RtpReader.h"
#include "refhost/rtp/payload/PayloadDescription.h"

namespace refhost
{

/// One frame or block of audio that came by RTP.
struct DepacketizedUnit
{
    /// Never null; the same object until the format changes.
    std::shared_ptr<const MediaFormat> format;
    /// As EncodedUnit::bytes: frames of H.264 and H.265 as NAL units, each behind its length in four bytes,
    /// without access unit delimiters and filler, a key frame with its parameter sets in front; MJPEG as a
    /// whole JPEG file. Empty when media are switched off, and where so much was lost that no slice is whole.
    std::vector<std::uint8_t> bytes;
    /// The packets that made it, in order, ready to send: twelve bytes of header with the unit's timestamp
    /// and the marker on the last of video and of fragmented audio; other fields of the header are 0. A key
    /// frame has its parameter sets in front: where the sender leaves them out, in a packet that was added.
    /// They are such as Packetizer::describe() announces: packets in another form, such as LATM, are not passed on
    /// but made again. What receivers cannot know to be torn is left out, as sequence numbers do not show the
    /// loss: fragments of a NAL unit some of which are missing, and of MJPEG all behind the first gap.
    /// `captureTime` is not set. Null when packets are switched off, for each unit but the first of those that
    /// came in one packet, and where so much was lost that no slice is whole.
    std::shared_ptr<AccessUnit> packets;
    std::uint32_t timestamp = 0;   ///< RTP's
    std::uint32_t duration = 0;    ///< ticks of the RTP clock; 0 when unknown, as for video
    std::uint32_t maxPayload = 0;  ///< bytes of payload of the largest of `packets`
    /// A decoder can start here: an IDR or IRAP frame, one of H.264 that consists of I slices behind a
    /// recovery point or a sequence parameter set, and all audio and MJPEG.
    bool keyFrame = false;
    /// Packets were lost or refused in it, or in front of it where it needs the frames before.
    bool damaged = false;
};

/// Makes frames and blocks of audio of the RTP payloads of one track.
///
/// A frame ends at the marker and where the timestamp changes. Markers are trusted once the first frame has
/// proved that they end frames; senders that set them on each slice or NAL unit are detected, and their
/// frames end with the timestamp alone. Parameter sets that come under a timestamp of their own are put in
/// front of the frame that follows.
///
/// Nothing is delivered before the format is known. Senders are not trusted: a unit of more than
/// `maxUnitBytes` or `maxUnitPackets` is left out and the next one is damaged.
///
/// Pure computation. Threads: one at a time; no locks.
class Depacketizer
{
public:
    /// As for AccessUnitBuilder; of `bytes` as well as of the packets with their headers.
    static constexpr std::size_t maxUnitBytes = 16U << 20U;
    static constexpr std::size_t maxUnitPackets = 16384;

    /// What is made of each unit. What nobody takes costs nothing.
    struct Outputs
    {
        bool media = true;    ///< DepacketizedUnit::bytes
        bool packets = true;  ///< DepacketizedUnit::packets
    };

    /// Takes a unit. It may move from it; it may not call the depacketizer.
    using Deliver = std::function<void(DepacketizedUnit&& unit)>;

    /// \param deliver     called by push() and flush() with each unit
    /// \param[out] error  where null is returned: why the track cannot be read, as a sentence for the log
    /// without the track's name
    static std::unique_ptr<Depacketizer> make(const PayloadDescription& track, Deliver deliver,
                                              std::string& error);

    /// \returns the codec of media with that encoding name, in letters of either case; nothing for media that
    /// make() does not know
    static std::optional<Codec> codecOf(std::string_view encodingName);

    virtual ~Depacketizer() = default;
    Depacketizer(const Depacketizer&) = delete;
    Depacketizer& operator=(const Depacketizer&) = delete;

    /// Takes the next packet in the order of sequence numbers.
    /// \param packet  as RtpReader::read() gives it; its payload is copied
    /// \param lost    how many packets are missing in front of it
    /// \returns null when it was taken; otherwise why it was refused, a constant text: a refused packet
    /// counts as lost
    const char* push(const RtpPacketView& packet, std::uint32_t lost);

    /// Delivers what is held, where its end was not certain: at the end of the stream, or after a pause.
    virtual void flush() = 0;

    /// Forgets what is held, and whether markers can be believed: what comes next does not continue what
    /// came before. The format stays.
    virtual void reset() = 0;

    /// Of what comes next; null as long as it is not known.
    const std::shared_ptr<const MediaFormat>& format() const
    {
        return format_;
    }

    /// Takes effect with the next unit.
    void setOutputs(Outputs outputs)
    {
        outputs_ = outputs;
    }

protected:
    explicit Depacketizer(Deliver deliver);

    /// As push(), with a payload of at least one byte.
    virtual const char* take(const RtpPacketView& packet, std::uint32_t lost) = 0;

    const Outputs& outputs() const
    {
        return outputs_;
    }

    /// Sets the format, as another object only where it differs.
    void setFormat(MediaFormat format);

    /// Completes `unit` with the format and hands it on, where the format is known.
    void deliver(DepacketizedUnit&& unit);

private:
    Deliver deliver_;
    Outputs outputs_;
    std::shared_ptr<const MediaFormat> format_;
};

}  // namespace refhost
