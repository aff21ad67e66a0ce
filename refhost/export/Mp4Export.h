#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/export/ExportHeader.h"
#include "refhost/export/ExportPlan.h"

namespace refhost
{

/// A recorded interval as an MP4 file that exists nowhere: it is put together from the recordings as it is read.
///
/// Its tables are made first, from the headers of the recorded frames; so its size is known, it can be played
/// while it is received, and any part of it can be read again. Nothing is decoded or encoded. Time 0 of the
/// file is the interval's begin: frames in front of it, from the key frame on, are cut by an edit list. A
/// gap of the recording is one of the file's timeline.
///
/// In memory it holds some 30 bytes for each frame and block of audio (ExportPlan::maxSamples), while they are
/// made, and afterwards 8 bytes and the tables; nothing that depends on the media's size. Reads from a disk.
/// Threads: one at a time.
class Mp4Export
{
public:
    /// \param[out] problem  why not
    /// \param[out] error    the same, in plain words
    /// \returns null with both set when there is nothing to export
    static std::unique_ptr<Mp4Export> open(const RecordingDirectory& directory,
                                           const ExportPlan::Request& request, ExportPlan::Problem& problem,
                                           std::string& error);

    /// Bytes of the whole file.
    std::uint64_t size() const
    {
        return size_;
    }

    /// A name of the file's contents: equal names, equal bytes. Hexadecimal digits. That of a recording that
    /// still grows changes with it.
    const std::string& tag() const
    {
        return tag_;
    }

    /// Number of segments in the interval that could not be read, or have another codec.
    int leftOut() const
    {
        return plan_.leftOut();
    }

    /// Reads a part of the file.
    /// \param offset       at most size()
    /// \param[out] error   why not: a recording was removed or changed since open(), or the disk failed
    /// \returns how many bytes were read: fewer than `count` only at the end of the file; nothing, with `error`
    ///          set, on failure
    std::optional<std::size_t> read(std::uint64_t offset, std::uint8_t* out, std::size_t count,
                                    std::string& error);

private:
    using Chunk = ExportHeader::Chunk;

    void arrange();
    std::uint64_t addChunk(const ExportTrack& track, std::size_t& next, std::size_t& run,
                           ExportTrack::Milliseconds until, std::uint64_t offset);
    std::size_t readMedia(std::uint64_t offset, std::uint8_t* out, std::size_t count, std::string& error);
    std::size_t readChunk(const Chunk& chunk, std::uint64_t offset, std::uint8_t* out, std::size_t count,
                          std::string& error);
    bool openSegment(std::uint32_t number, std::string& error);
    bool readSegment(std::uint64_t position, std::uint8_t* out, std::size_t count, std::string& error) const;

    ExportPlan plan_;
    std::vector<Chunk> chunks_;
    std::vector<std::uint8_t> header_;
    std::uint64_t size_ = 0;
    std::string tag_;
    Descriptor file_;
    std::optional<std::uint32_t> fileNumber_;
};

}  // namespace refhost
