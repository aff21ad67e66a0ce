#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/recording/SegmentCutter.h"
#include "refhost/recording/SyncedFile.h"

struct AVFormatContext;
struct AVIOContext;
struct AVPacket;

namespace refhost
{

/// A Matroska file that is being written.
///
/// Timestamps are milliseconds since the segment's begin. What was flushed is readable at any time, also after
/// a crash: the file consists of complete clusters then, and lacks the index that close() adds.
///
/// Threads: one at a time.
class SegmentWriter
{
public:
    /// The instant that is timestamp 0.
    struct Begin
    {
        MonotonicTime capture;  ///< by the clock of the units' capture times
        WallTime wall;          ///< also stands in the file, in microseconds
    };

    /// Makes room on a full disk.
    /// \param again  the room made by the previous call did not suffice
    /// \returns false when it cannot
    using MakeRoom = std::function<bool(bool again)>;

    /// Creates a file, readable for the server's user and group, and writes its header.
    /// \param[out] error  why not
    /// \param makeRoom    called whenever the disk is full, before the write is tried again; may be empty
    /// \returns null with `error` set, and no file left, on failure; also when the file exists
    static std::unique_ptr<SegmentWriter> create(const std::string& path, const Begin& begin,
                                                 const SegmentSink::Tracks& tracks, std::string& error,
                                                 MakeRoom makeRoom = {});

    /// Whether a file can have such a track: false when its description for decoders is malformed.
    static bool accepts(const MediaFormat& format);

    /// Whether an `errno` says that a disk is full.
    static bool isFull(int failure);

    SegmentWriter(const SegmentWriter&) = delete;
    SegmentWriter& operator=(const SegmentWriter&) = delete;
    /// Leaves the file as it is unless close() was called. The descriptor is closed with the last holder of
    /// file().
    ~SegmentWriter();

    /// Adds a unit; it may stay in memory until flush(). Malformed ones are left out, see leftOut().
    /// \returns false when the disk failed, see error(); call only the destructor then
    bool write(std::size_t track, const EncodedUnit& unit);
    /// Writes what is in memory.
    /// \returns as of write()
    bool flush();
    /// Finishes the file with an index for seeking; call only the destructor then.
    /// \returns as of write()
    bool close();

    /// Number of malformed units.
    int leftOut() const
    {
        return leftOut_;
    }
    /// Bytes in the file so far.
    std::int64_t bytes() const
    {
        return size_;
    }
    const std::string& path() const
    {
        return path_;
    }
    /// The file, for DiskSync. Never null.
    const std::shared_ptr<SyncedFile>& file() const
    {
        return file_;
    }
    /// Why an operation failed, in plain words.
    const std::string& error() const
    {
        return error_;
    }

private:
    SegmentWriter(std::string path, const Begin& begin, MakeRoom makeRoom);
    bool openFile();
    bool getsRoom(int failure, int attempt) const;
    bool start(const SegmentSink::Tracks& tracks);
    bool addTrack(const MediaFormat& format);
    bool succeeded(int result);

    static int onWrite(void* self, std::uint8_t* data, int size);
    static std::int64_t onSeek(void* self, std::int64_t offset, int whence);

    std::string path_;
    const Begin begin_;
    MakeRoom makeRoom_;
    std::shared_ptr<SyncedFile> file_;
    int leftOut_ = 0;
    bool discards_ = false;  ///< writes nothing: a trial of accepts()
    int systemError_ = 0;
    std::int64_t position_ = 0;
    std::int64_t size_ = 0;
    std::string error_;
    AVFormatContext* format_ = nullptr;
    AVIOContext* output_ = nullptr;
    AVPacket* packet_ = nullptr;
    std::int64_t unitsWritten_ = 0;
};

}  // namespace refhost
