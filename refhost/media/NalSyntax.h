#pragma once
// Tested by tests/refhost/rtp/payload/H264Depacketizer_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>

#include "refhost/media/ByteSpan.h"
#include "refhost/media/Codec.h"

namespace refhost
{

/// What a NAL unit, or the payload of an RTP packet, is.
enum class NalKind
{
    slice,
    keySlice,     ///< of an IDR (H.264) or IRAP (H.265) frame
    videoSet,     ///< video parameter set
    sequenceSet,  ///< sequence parameter set
    frameSet,     ///< parameter set of frames (PPS)
    information,  ///< SEI in front of a frame
    delimiter,    ///< access unit delimiter
    filler,
    other,      ///< of the frame, such as SEI behind it, or of its end
    aggregate,  ///< several units in one packet: STAP-A, AP
    fragment,   ///< a part of one: FU-A, FU
    refused     ///< interleaved, with numbers of decoding order, or reserved
};

inline bool isSlice(NalKind kind)
{
    return kind == NalKind::slice || kind == NalKind::keySlice;
}

/// Whether it is a parameter set.
inline bool isSet(NalKind kind)
{
    return kind == NalKind::videoSet || kind == NalKind::sequenceSet || kind == NalKind::frameSet;
}

/// Whether it is a NAL unit itself, which units do not hold.
inline bool isUnit(NalKind kind)
{
    return kind != NalKind::aggregate && kind != NalKind::fragment && kind != NalKind::refused;
}

/// How NAL units of H.264 (RFC 6184, section 5) and H.265 (RFC 7798, section 4) are written in packets.
/// Threads: any; two constant objects.
class NalSyntax
{
public:
    /// The part of a NAL unit in a packet.
    struct Fragment
    {
        std::array<std::uint8_t, 2> header;  ///< of the whole unit; the first `headerSize` bytes
        bool starts;
        bool ends;
        ByteSpan body;  ///< behind the unit's header
    };

    /// \param codec  H.264 or H.265
    static const NalSyntax& of(Codec codec);

    Codec codec() const
    {
        return codec_;
    }

    /// Bytes of a NAL unit's header.
    std::size_t headerSize() const
    {
        return headerSize_;
    }

    /// Bytes in front of a fragment's body in a packet.
    std::size_t fragmentHeaderSize() const
    {
        return headerSize_ + 1;
    }

    /// Requires: `unit` has a header.
    NalKind kindOf(ByteSpan unit) const;

    /// Whether two headers are of the same type of unit; some senders change the importance between fragments.
    /// Requires: both have a header.
    bool isSameType(ByteSpan one, ByteSpan other) const;

    /// Why packets of a kind that is refused are.
    /// Requires: kindOf(payload) is `refused`.
    const char* refusalOf(ByteSpan payload) const;

    /// Whether a slice is the first of its frame, by the first bit behind the header (first_mb_in_slice,
    /// first_slice_segment_in_pic_flag). \param body  of a slice, behind its header; false for an empty one
    static bool startsFrame(ByteSpan body);

    /// Whether a slice of H.264 has macroblocks of type I alone, as far as its header says so.
    /// \param body  behind the NAL unit's header
    bool isIntra(ByteSpan body) const;

    /// Whether a supplemental message of H.264 says that decoding may start with this frame and is exact
    /// from it on (recovery_frame_cnt is 0). \param unit  a whole NAL unit of kind `information`
    bool isRecoveryPoint(ByteSpan unit) const;

    /// Reads a packet of kind `fragment`. \returns false when it is too short
    bool readFragment(ByteSpan payload, Fragment& out) const;

    /// Marks a packet of kind `fragment` as the last one of its unit. \param payload  of at least
    /// fragmentHeaderSize() bytes
    void markEnd(std::uint8_t* payload) const;

    /// Writes what stands in front of a fragment's body: fragmentHeaderSize() bytes.
    /// \param unit  the whole NAL unit
    void writeFragmentHeader(ByteSpan unit, bool starts, bool ends, std::uint8_t* at) const;

    /// Writes the header of an aggregate whose first unit is `unit`: headerSize() bytes. What is written for
    /// each further unit keeps the highest importance and the lowest layer of all.
    void startAggregate(ByteSpan unit, std::uint8_t* at) const;
    void joinAggregate(ByteSpan unit, std::uint8_t* at) const;

private:
    NalSyntax(Codec codec, std::size_t headerSize) : codec_(codec), headerSize_(headerSize) {}

    const Codec codec_;
    const std::size_t headerSize_;
};

/// Walks the units of an aggregate: 16 bits of size, then the unit. \param units  behind the header
/// \param use  called with each unit, of at least `minSize` bytes
/// \returns false where sizes do not fit, or there is no unit; what came before was used
template <class Use>
bool forEachAggregated(ByteSpan units, std::size_t minSize, Use use)
{
    do
    {
        if (units.size < 2)
        {
            return false;
        }
        const std::size_t size = static_cast<std::size_t>(units[0]) << 8U | units[1];
        units = units.from(2);
        if (size < minSize || size > units.size)
        {
            return false;
        }
        use(units.first(size));
        units = units.from(size);
    } while (!units.empty());
    return true;
}

}  // namespace refhost
