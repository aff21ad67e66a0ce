#pragma once
// Tested by tests/refhost/export/SegmentTable_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "refhost/base/Descriptor.h"
#include "refhost/base/Times.h"
#include "refhost/export/FileWindow.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// Where the frames and blocks of a recorded Matroska file lie. Reads headers alone, none of the media.
///
/// Reads from a disk. Threads: one at a time.
class SegmentTable
{
public:
    /// One frame or block of audio.
    struct Sample
    {
        bool video = false;
        bool key = false;
        Duration offset{};                   ///< presentation time, from the file's begin
        std::uint64_t position = 0;          ///< of its first byte in the file
        std::uint32_t size = 0;              ///< bytes, at least 1
        std::array<std::uint8_t, 2> head{};  ///< its first bytes
    };

    enum class Result
    {
        sample,
        corrupt,  ///< something was skipped; what follows may be read
        end
    };

    /// Larger frames count as corrupt.
    static constexpr std::uint32_t maxSampleBytes = 1U << 26U;
    /// Files are read up to here.
    static constexpr std::uint64_t maxFileBytes = std::uint64_t{1} << 38U;

    /// \param[out] error  why not, in plain words
    /// \returns null with `error` set when the file cannot be read or has no track that can be exported
    static std::unique_ptr<SegmentTable> open(const std::string& path, std::string& error);

    /// The file's first track of a kind; null when there is none.
    const std::shared_ptr<const MediaFormat>& format(bool video) const
    {
        return video ? video_ : audio_;
    }

    /// The next sample of these tracks, in file order.
    Result next(Sample& out);

private:
    struct Element
    {
        std::uint32_t id = 0;
        std::uint64_t body = 0;
        std::optional<std::uint64_t> size;  ///< nothing: it ends where its parent does
    };

    struct Track
    {
        std::uint64_t number;
        std::uint64_t type;
        bool encoded;  ///< compressed or encrypted
    };

    explicit SegmentTable(Descriptor file) : file_(std::move(file)), window_(file_.get()) {}
    bool readTracks(std::string& error);
    void endTrack();
    bool readElement(std::uint64_t at, Element& out);
    std::optional<std::uint64_t> readNumber(std::uint64_t at, bool keepMarker, std::size_t& length);
    std::uint64_t unsignedOf(const Element& element);
    bool readGroup(const Element& group, Sample& out);
    bool readBlock(const Element& block, Sample& out);
    bool resync();

    const Descriptor file_;
    FileWindow window_;
    std::shared_ptr<const MediaFormat> video_;
    std::shared_ptr<const MediaFormat> audio_;
    std::optional<Track> track_;  ///< the one whose entry is read
    std::uint64_t videoNumber_ = 0;
    std::uint64_t audioNumber_ = 0;
    bool encoded_ = false;
    std::uint64_t fileSize_ = 0;
    std::uint64_t position_ = 0;
    std::uint64_t scale_ = 1'000'000;  ///< nanoseconds in a unit of time
    std::uint64_t clusterTime_ = 0;
};

}  // namespace refhost
