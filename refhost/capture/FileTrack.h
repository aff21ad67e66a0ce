#pragma once
// Tested by tests/refhost/capture/FileTrack_test.cpp.

#include <memory>
#include <optional>

#include "refhost/media/EncodedUnit.h"

struct AVStream;

namespace refhost
{

/// A track of a media file that can be sent as it is. A plain value.
struct FileTrack
{
    /// H.264 and H.265 with the decoder configuration record. Never null.
    std::shared_ptr<const MediaFormat> format;
    double frameRate = 0;  ///< frames a second as the file says; 0 when unknown, and for audio

    Codec codec() const
    {
        return format->codec;
    }

    /// \param stream  of an open file; not read further
    /// \returns nothing for a track that has to be decoded or converted first: of another codec, of H.264 or
    ///          H.265 as a byte stream, AAC without its config, PCM that is not of 8000 Hz and one channel, more
    ///          than two channels of Opus
    static std::optional<FileTrack> of(const AVStream& stream);
};

}  // namespace refhost
