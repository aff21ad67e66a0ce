#pragma once
// Tested by tests/refhost/export/Mp4Export_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "refhost/export/SegmentTable.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// The samples of one track of an export and their times. Holds 14 bytes for each sample.
///
/// Times are milliseconds from the begin of the exported interval: recordings have no finer ones. Threads: one
/// at a time.
class ExportTrack
{
public:
    using Milliseconds = std::int32_t;

    /// Where a sample lies.
    struct Place
    {
        std::uint64_t position = 0;
        std::uint32_t size = 0;
    };

    /// Samples in a row of one segment and one format.
    struct Run
    {
        std::uint32_t first = 0;        ///< sample
        std::uint32_t segment = 0;      ///< its number in the plan
        std::uint32_t description = 0;  ///< number of the format
    };

    /// Samples in a row with one number, as MP4 tables list them.
    struct Step
    {
        std::uint32_t count = 0;
        std::uint32_t ticks = 0;
    };

    /// What of the media is presented when (ISO/IEC 14496-12, section 8.6.6). It starts with the first sample
    /// that starts in the interval: demuxers take the media's begin in an edit for that of a sample.
    struct Edit
    {
        std::int64_t lead = 0;       ///< milliseconds in front that have no media
        std::int64_t mediaTime = 0;  ///< ticks of the media that are cut
        std::int64_t length = 0;     ///< milliseconds presented; not positive: nothing
    };

    /// Max distance of audio from its recorded time before the time is corrected, milliseconds.
    static constexpr Milliseconds maxDrift = 5;
    /// Max number of formats of a track: parameter sets that change.
    static constexpr std::size_t maxFormats = 64;

    explicit ExportTrack(bool video) : video_(video) {}

    /// Number of a format, entered when it is new.
    /// \returns nothing for another codec or rate of audio than the first one's, and beyond maxFormats
    std::optional<std::uint32_t> describe(const std::shared_ptr<const MediaFormat>& format);
    void add(const SegmentTable::Sample& sample, Milliseconds time, std::uint32_t segment,
             std::uint32_t description);
    /// Forgets all samples.
    void clear();
    /// Forgets the samples at the end that are presented at `end` or later, and computes the tables.
    /// \param next  when what follows the last sample is presented, or the recording ends; ignored where that is
    ///              not within a second of it
    void finish(Milliseconds end, Milliseconds next);

    bool isVideo() const
    {
        return video_;
    }
    std::size_t count() const
    {
        return places_.size();
    }
    /// Whether a sample is presented in [0, end).
    bool isWithin(Milliseconds end) const;
    Place place(std::size_t sample) const;
    /// When a sample is decoded, and after finish() not before the one in front of it.
    Milliseconds decodeTime(std::size_t sample) const
    {
        return decode_.empty() ? times_[sample] : decode_[sample];
    }
    const std::vector<bool>& keys() const
    {
        return keys_;
    }
    const std::vector<Run>& runs() const
    {
        return runs_;
    }
    const std::vector<std::shared_ptr<const MediaFormat>>& formats() const
    {
        return formats_;
    }
    /// Ticks in a second.
    std::uint32_t timescale() const;

    // After finish():

    const std::vector<Step>& durations() const
    {
        return durations_;
    }
    /// From decoding to presentation; empty where both are one.
    const std::vector<Step>& offsets() const
    {
        return offsets_;
    }
    /// Ticks of all samples.
    std::uint64_t length() const
    {
        return length_;
    }
    Edit edit(Milliseconds end) const;
    /// Frees what only the tables are made from; place() and runs() stay.
    void forgetTimes();

private:
    static Milliseconds lastDuration(Milliseconds last, Milliseconds next);
    static void append(std::vector<Step>& steps, std::uint32_t ticks);
    void finishVideo(Milliseconds next);
    void finishAudio(Milliseconds next);
    std::int64_t ticksOf(std::int64_t milliseconds) const;

    bool video_;
    std::vector<std::uint64_t> places_;  // position and size
    std::vector<Milliseconds> times_;
    std::vector<Milliseconds> decode_;  // empty where it is times_
    std::vector<bool> keys_;
    std::vector<std::uint16_t> lengths_;  // of audio, ticks; 0 when unknown
    std::vector<Run> runs_;
    std::vector<std::shared_ptr<const MediaFormat>> formats_;
    std::vector<Step> durations_;
    std::vector<Step> offsets_;
    std::uint64_t length_ = 0;
    Milliseconds shift_ = 0;       // from decoding to presentation, at most
    Milliseconds first_ = -1;      // time of the first sample in the interval
    std::int64_t firstTicks_ = 0;  // the same from the media's begin
};

}  // namespace refhost
