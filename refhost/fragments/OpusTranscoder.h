#pragma once
// Tested by tests/refhost/fragments/OpusTranscoder_test.cpp.

#include <cstdint>
#include <memory>
#include <vector>

#include "refhost/media/EncodedUnit.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace refhost
{

/// Audio that browsers do not play, PCMU and PCMA, as Opus in blocks of 20 ms.
///
/// Threads: one at a time. No operation waits.
class OpusTranscoder
{
public:
    /// The format of the audio that comes out.
    /// \returns null for a format that is not transcoded: browsers play it, or Opus has no such sample rate
    static std::shared_ptr<const MediaFormat> formatFor(const MediaFormat& from);

    /// \param from  one for which there is formatFor()
    /// \returns null when the codecs cannot be opened
    static std::unique_ptr<OpusTranscoder> make(const std::shared_ptr<const MediaFormat>& from);

    ~OpusTranscoder();
    OpusTranscoder(const OpusTranscoder&) = delete;
    OpusTranscoder& operator=(const OpusTranscoder&) = delete;

    /// Transcodes the next block. One that does not continue the former starts again; one that is malformed is left out.
    /// \param[in,out] out  what came out is appended; its times are those of the audio
    void transcode(const EncodedUnit& unit, std::vector<EncodedUnitPtr>& out);

    const MediaFormat& from() const
    {
        return *from_;
    }

private:
    explicit OpusTranscoder(const std::shared_ptr<const MediaFormat>& from);

    bool openDecoder();
    bool openEncoder();
    bool decode(const EncodedUnit& unit);
    void encode(MonotonicTime time, std::vector<EncodedUnitPtr>& out);
    Duration spanOf(std::size_t samples) const;

    const std::shared_ptr<const MediaFormat> from_;
    const std::shared_ptr<const MediaFormat> to_;
    AVCodecContext* decoder_ = nullptr;
    AVCodecContext* encoder_ = nullptr;
    AVPacket* packet_ = nullptr;
    AVFrame* decoded_ = nullptr;
    AVFrame* frame_ = nullptr;           // for the encoder
    std::vector<std::int16_t> samples_;  // not encoded yet, interleaved
    MonotonicTime end_;                  // of them
    std::int64_t position_ = 0;          // samples of each channel that were encoded
};

}  // namespace refhost
