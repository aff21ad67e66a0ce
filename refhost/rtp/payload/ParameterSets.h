#pragma once
// Tested by tests/refhost/rtp/payload/H264Depacketizer_test.cpp.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/media/EncodedUnit.h"
#include "refhost/media/NalSyntax.h"
#include "refhost/media/SequenceParameterSet.h"
#include "refhost/rtp/payload/PayloadDescription.h"

namespace refhost
{

/// The parameter sets of a stream of H.264 or H.265, and the record that is made of them. A set replaces the
/// one of the same kind and number. Threads: one at a time.
class ParameterSets
{
public:
    /// Of each kind: what a record of H.264 can hold, and more than streams have.
    static constexpr std::size_t maxSets = 31;
    static constexpr std::size_t maxSetSize = 8192;  ///< bytes

    enum class Taken
    {
        known,    ///< it is here already
        changed,  ///< it is new, or replaced another
        refused   ///< it cannot be read, or is beyond the bounds
    };

    explicit ParameterSets(const NalSyntax& syntax) : syntax_(&syntax) {}

    /// \param unit  a NAL unit of one of the kinds of parameter sets
    Taken take(ByteSpan unit);

    /// Takes what a description holds: sprop-parameter-sets, or sprop-vps, -sps and -pps. What cannot be read
    /// is left out: most senders repeat the sets with the media.
    void takeDescribed(const FormatParameters& parameters);

    /// Takes the sets of a decoder configuration record. \returns false when it cannot be read
    bool takeRecord(ByteSpan record);

    /// \returns nothing as long as a kind of set is missing
    std::optional<MediaFormat> format() const;

    /// Of the sequence parameter set that came last; 0 where that does not say it.
    double frameRate() const
    {
        return last_.frameRate;
    }

    /// Calls `use` with each set, in the order in which they stand in a stream.
    template <class Use>
    void forEach(Use use) const
    {
        for (const Sets* const sets : {&videoSets_, &sequenceSets_, &frameSets_})
        {
            for (const auto& [id, set] : *sets)
            {
                use(ByteSpan(set));
            }
        }
    }

private:
    using Sets = std::map<std::uint32_t, std::vector<std::uint8_t>>;

    Sets& setsOf(NalKind kind);
    std::optional<std::uint32_t> idOf(NalKind kind, ByteSpan unit) const;
    Taken takeSequenceSet(ByteSpan unit);
    static bool keep(Sets& sets, std::uint32_t id, ByteSpan unit);
    void takeText(const std::string& text);
    std::vector<std::uint8_t> avcRecord() const;
    std::vector<std::uint8_t> hevcRecord() const;

    const NalSyntax* syntax_;
    Sets videoSets_;
    Sets sequenceSets_;
    Sets frameSets_;
    /// Of the sequence parameter set that came last.
    SequenceParameterSet last_;
};

}  // namespace refhost
