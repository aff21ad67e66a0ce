#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/capture/FileTrack.h"

struct AVFormatContext;
struct AVPacket;

namespace refhost
{

/// One coded frame or block of audio of a file.
struct CodedUnit
{
    std::vector<std::uint8_t> bytes;
    bool video = false;
    bool key = false;
    Duration offset{};    ///< presentation time, from the begin of the file
    WallTime date;        ///< presentation time; a UnitReader sets it
    Duration duration{};  ///< 0 when unknown
};

/// Reads one Matroska file of recorded media, which may be truncated or still grow.
///
/// Reads from a disk. Threads: one at a time.
class SegmentFile
{
public:
    enum class Result
    {
        unit,
        end,     ///< of the file as it is now
        corrupt  ///< nothing more can be read
    };

    /// \param[out] error  why not, in plain words
    /// \returns null with `error` set when the file cannot be read or has no track that this host can send
    static std::unique_ptr<SegmentFile> open(const std::string& path, std::string& error);
    /// Logs that a file is skipped because open() failed with `error`: as a warning, or as information where
    /// the file is gone, which retention and repair report themselves.
    static void reportLeftOut(const std::string& path, const std::string& error);
    /// Opens the same file again to read what was appended; a seek to this object's position is fast.
    std::unique_ptr<SegmentFile> again(std::string& error) const;
    ~SegmentFile();
    SegmentFile(const SegmentFile&) = delete;
    SegmentFile& operator=(const SegmentFile&) = delete;

    /// Whether a decoder accepts a track's parameters, such as parameter sets. False without such a track.
    /// Takes about a millisecond.
    bool isDecodable(bool video) const;

    /// The file's first track of the kind; null when there is none.
    const FileTrack* video() const
    {
        return video_ ? &*video_ : nullptr;
    }

    const FileTrack* audio() const
    {
        return audio_ ? &*audio_ : nullptr;
    }

    /// Seeks the last key frame at or before a time, or the first one; audio follows from about there.
    /// Without video it seeks the audio of that time.
    /// \returns false when the file is corrupt there
    bool seek(Duration offset);

    /// The next unit of either track, in file order.
    Result read(CodedUnit& out);

private:
    struct FreePacket
    {
        void operator()(AVPacket* packet) const;
    };
    struct CloseInput
    {
        void operator()(AVFormatContext* context) const;
    };
    using PacketPtr = std::unique_ptr<AVPacket, FreePacket>;

    explicit SegmentFile(std::string path) : path_(std::move(path)) {}
    bool openInput(std::string& error);
    bool chooseTracks();
    Duration spanOf(std::int64_t timestamp, int stream) const;
    bool seekByIndex(Duration offset);
    bool seekByReading(Duration offset);
    bool readKey(Duration from);
    bool rewind();

    const std::string path_;
    std::unique_ptr<AVFormatContext, CloseInput> input_;
    int videoIndex_ = -1;
    int audioIndex_ = -1;
    std::optional<FileTrack> video_;
    std::optional<FileTrack> audio_;
    std::deque<CodedUnit> kept_;  // read by seek()
};

}  // namespace refhost
