#pragma once
// Tested by tests/refhost/capture/FilePlayer_test.cpp.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/capture/LoopTimeline.h"
#include "refhost/capture/MediaFile.h"

namespace refhost
{

/// A media file that is played in a loop: gives one unit after the other, each with its place on one endless
/// timeline and the time when it is due.
///
/// It reads ahead, because a file may hold video and audio of the same time far from each other: a second, but
/// no more than `maxBytes` and `maxUnits`. Reads from a disk. Threads: one at a time.
class FilePlayer
{
public:
    static constexpr std::size_t maxBytes = 8U << 20U;  ///< and one unit
    static constexpr std::size_t maxUnits = 4096;       ///< and those of one packet
    static constexpr Duration readAhead = std::chrono::seconds(1);

    struct Item
    {
        std::shared_ptr<const MediaFormat> format;  ///< the same object until the format changes
        std::vector<std::uint8_t> bytes;
        bool video = false;
        bool key = false;
        Duration presentation{};  ///< on the timeline
        Duration duration{};      ///< 0 when unknown
    };

    FilePlayer(std::string path, MediaFile::Kinds requested, MediaFile::Interrupted interrupted);

    /// Opens the file. \returns false with `problem` set, as MediaFile::open()
    bool open(MediaFile::Problem& problem);

    /// As MediaFile::track(). Requires: it is open.
    const FileTrack* track(bool video) const
    {
        return file_->track(video);
    }

    /// Reads ahead, beyond the file's end from its start on.
    /// \param now  present time on the timeline; the very first unit is placed there
    /// \returns when the next unit is due on the timeline; nothing with `problem` set when the file cannot be
    ///          played on
    std::optional<Duration> due(Duration now, std::string& problem);

    /// The next unit. Requires: due() returned its time.
    Item take();

    /// Bytes of what was read and not taken yet.
    std::size_t heldBytes() const
    {
        return bytes_;
    }

private:
    /// Units by the time when they are due. Those of a track stay in their order.
    using Queue = std::multimap<Duration, Item>;

    bool readOne(Duration now, std::string& problem);
    bool startAgain(std::string& problem);
    std::shared_ptr<const MediaFormat> formatOf(const MediaFile::Unit& unit);
    bool place(MediaFile::Unit unit, Duration now, std::string& problem);
    bool place(Item item, const LoopTimeline::Unit& times, Duration now, std::string& problem);
    bool isFull() const;

    const std::string path_;
    const MediaFile::Kinds requested_;
    const MediaFile::Interrupted interrupted_;
    std::unique_ptr<MediaFile> file_;
    LoopTimeline timeline_;
    std::size_t readInIteration_ = 0;  ///< units

    // Of video and audio.
    std::array<std::shared_ptr<const MediaFormat>, 2> initial_;  ///< at the file's start
    std::array<std::shared_ptr<const MediaFormat>, 2> present_;  ///< of the last unit
    std::array<Duration, 2> lastDue_{};

    Queue queue_;
    std::size_t bytes_ = 0;  ///< of the queue
};

}  // namespace refhost
