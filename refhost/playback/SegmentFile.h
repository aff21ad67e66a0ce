#pragma once

#include <gst/gst.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "refhost/base/Times.h"
#include "refhost/media/Codec.h"
#include "refhost/media/GstHandles.h"

struct AVFormatContext;
struct AVPacket;

namespace refhost
{

/// One coded frame or block of audio of a file.
struct CodedUnit
{
    GstValuePtr<GstBuffer> buffer;
    bool video = false;
    bool key = false;
    Duration offset{};    ///< presentation time, from the begin of the file
    WallTime date;        ///< presentation time; a UnitReader sets it
    Duration duration{};  ///< 0 when unknown
};

/// Reads one Matroska file of recorded media, also one that is cut off or still grows.
///
/// Threads: one at a time. Reads from a disk.
class SegmentFile
{
public:
    struct Track
    {
        Codec codec;
        GstValuePtr<GstCaps> caps;  ///< what the units are
    };

    enum class Result
    {
        unit,
        end,     ///< of what is on disk
        corrupt  ///< nothing more can be read
    };

    /// \param[out] error  why not, in plain words
    /// \returns null with `error` set when the file cannot be read or holds nothing that this host can send
    static std::unique_ptr<SegmentFile> open(const std::string& path, std::string& error);
    /// Says in the log that a file is left out, because open() failed with `error`. Where the file is gone that is
    /// no warning: the limits of the recording or its repair took it away meanwhile, and they report it.
    static void reportLeftOut(const std::string& path, const std::string& error);
    /// The same file opened again, for what it has grown by; a seek to where this one came to is quick then.
    std::unique_ptr<SegmentFile> again(std::string& error) const;
    ~SegmentFile();
    SegmentFile(const SegmentFile&) = delete;
    SegmentFile& operator=(const SegmentFile&) = delete;

    /// Whether a decoder takes what describes a track, such as its parameter sets. False without such a
    /// track. Costs about a millisecond.
    bool isDecodable(bool video) const;

    /// The file's first track of the kind; null when there is none.
    const Track* video() const
    {
        return video_ ? &*video_ : nullptr;
    }

    const Track* audio() const
    {
        return audio_ ? &*audio_ : nullptr;
    }

    /// Goes to the last key frame at or before a time; to the first one where there is none before. Audio
    /// comes from about there on. Without frames it goes to the audio of that time.
    /// \returns false when the file is damaged there
    bool seek(Duration offset);

    /// The next unit in the order of the file, of either track.
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
    std::optional<Track> video_;
    std::optional<Track> audio_;
    std::deque<CodedUnit> kept_;  // read already
};

}  // namespace refhost
