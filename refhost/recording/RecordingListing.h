#pragma once

#include <functional>
#include <iosfwd>
#include <string>

#include "refhost/recording/RecordingIndex.h"

namespace refhost
{

/// Prints what was recorded: a line for each contiguous range with a URL that plays it, and the gaps.
class RecordingListing
{
public:
    /// \param base       of playback URLs, such as "rtsp://127.0.0.1:8554/orv/playback/"
    /// \param recording  whether a server records there now: otherwise open segments are a crash's
    /// \param nameOf     returns a stream's name by the numbers of camera and stream
    RecordingListing(std::string base, bool recording, std::function<std::string(int, int)> nameOf)
        : base_(std::move(base)), recording_(recording), nameOf_(std::move(nameOf))
    {
    }

    /// Writes all recordings of the index, or that there are none.
    void write(const RecordingIndex& index, std::ostream& out) const;

private:
    void writeStream(const RecordingIndex& index, const RecordedStream& stream, std::ostream& out) const;
    std::string url(int cameraId, const RecordedInterval& interval) const;

    std::string base_;
    bool recording_;
    std::function<std::string(int, int)> nameOf_;
};

}  // namespace refhost
