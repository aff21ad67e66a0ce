#pragma once

#include <functional>
#include <iosfwd>
#include <string>

#include "refhost/recording/RecordingIndex.h"

namespace refhost
{

/// Tells people what was recorded: a line for each time without a seam, the gaps between them, and a URL that
/// plays it.
class RecordingListing
{
public:
    /// \param base       of playback URLs, such as "rtsp://127.0.0.1:8554/orv/playback/"
    /// \param recording  whether a server records there now: without one nothing grows, whatever a crash left
    /// \param nameOf     names a stream by the numbers of camera and stream
    RecordingListing(std::string base, bool recording, std::function<std::string(int, int)> nameOf)
        : base_(std::move(base)), recording_(recording), nameOf_(std::move(nameOf))
    {
    }

    /// Writes everything that the index holds, or that it holds nothing.
    void write(const RecordingIndex& index, std::ostream& out) const;

private:
    void writeStream(const RecordingIndex& index, const RecordedStream& stream, std::ostream& out) const;
    std::string url(int cameraId, const RecordedInterval& interval) const;

    std::string base_;
    bool recording_;
    std::function<std::string(int, int)> nameOf_;
};

}  // namespace refhost
