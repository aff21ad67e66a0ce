#pragma once
// Tested by tests/refhost/capture/MediaFile_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/base/Times.h"
#include "refhost/capture/FileTrack.h"

struct AVFormatContext;
struct AVIOContext;
struct AVPacket;

namespace refhost
{

/// A media file, MP4 or Matroska, that is read from its start to its end without decoding.
///
/// Files are not trusted: no other file is opened whatever one says, and units beyond `maxUnitBytes` are left
/// out. Reads from a disk. Threads: one at a time.
class MediaFile
{
public:
    static constexpr std::size_t maxUnitBytes = 16U << 20U;

    /// Which kinds of tracks are requested.
    struct Kinds
    {
        bool video = true;
        bool audio = true;
    };

    /// Why open() failed.
    struct Problem
    {
        std::string text;         ///< in plain words, without the path
        bool otherMeans = false;  ///< the file is there: another reader may know it, or decode it
    };

    /// One frame or block of audio. Times are the file's own; nothing where it does not say.
    struct Unit
    {
        std::shared_ptr<const MediaFormat> format;
        std::vector<std::uint8_t> bytes;
        bool video = false;
        bool key = false;
        std::optional<Duration> presentation;
        std::optional<Duration> decoding;
        std::optional<Duration> duration;
    };

    enum class Result
    {
        unit,
        end,
        corrupt  ///< nothing more can be read
    };

    /// Asked at each access to the disk: true ends the operation, which fails.
    using Interrupted = std::function<bool()>;

    /// \param[out] problem  set where null is returned
    /// \returns null when the file cannot be read, when it has none of the requested tracks, and when one of
    ///          them cannot be sent as it is
    static std::unique_ptr<MediaFile> open(const std::string& path, Kinds requested, Interrupted interrupted,
                                           Problem& problem);
    ~MediaFile();
    MediaFile(const MediaFile&) = delete;
    MediaFile& operator=(const MediaFile&) = delete;

    /// The first requested track of a kind; null where the file has none.
    const FileTrack* track(bool video) const
    {
        const std::optional<FileTrack>& track = tracks_[video ? 0 : 1].track;
        return track ? &*track : nullptr;
    }

    /// The next unit of either track, in the order of the file.
    Result read(Unit& out);

private:
    struct Chosen
    {
        int stream = -1;
        std::optional<FileTrack> track;
    };

    explicit MediaFile(Interrupted interrupted) : interrupted_(std::move(interrupted)) {}

    bool openFile(const std::string& path, std::string& error);
    bool openInput(std::string& error);
    bool choose(Kinds requested, std::string& error);
    bool take(const AVPacket& packet, Unit& out);
    bool takeFormat(const AVPacket& packet, FileTrack& track) const;
    std::optional<Duration> spanOf(std::int64_t time, int stream) const;
    static int onRead(void* self, std::uint8_t* data, int size);
    static std::int64_t onSeek(void* self, std::int64_t offset, int whence);
    static int onInterrupt(void* self);

    const Interrupted interrupted_;
    Descriptor file_;
    std::int64_t size_ = 0;
    std::int64_t position_ = 0;
    AVIOContext* io_ = nullptr;
    AVFormatContext* input_ = nullptr;
    AVPacket* packet_ = nullptr;
    std::array<Chosen, 2> tracks_;  ///< video, audio
};

}  // namespace refhost
