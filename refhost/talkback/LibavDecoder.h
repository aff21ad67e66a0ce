#pragma once
// Tested by tests/refhost/talkback/TalkDecoder_test.cpp.

#include <memory>
#include <string>

#include "refhost/media/Codec.h"
#include "refhost/talkback/FrameDecoder.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace refhost
{

/// Frames of any codec of the table, decoded by libavcodec.
class LibavDecoder : public FrameDecoder
{
public:
    /// \param codecData  the codec's configuration record as bytes: the AudioSpecificConfig of AAC (ISO/IEC
    ///                   14496-3, section 1.6.2.1); empty where the codec needs none
    /// \param recorded   the described format, valid until the first frame
    /// \returns null for a codec that cannot be decoded
    static std::unique_ptr<LibavDecoder> make(Codec codec, const std::string& codecData,
                                              const PcmFormat& recorded);

    ~LibavDecoder() override;
    LibavDecoder(const LibavDecoder&) = delete;
    LibavDecoder& operator=(const LibavDecoder&) = delete;

    PcmFormat format() const override
    {
        return format_;
    }
    bool decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples) override;
    void reset() override;

private:
    LibavDecoder(Codec codec, const PcmFormat& recorded);

    bool open(const std::string& codecData);
    bool setCodecData(const std::string& codecData);
    bool append(std::vector<std::int16_t>& samples);

    const CodecInfo& info_;
    AVCodecContext* context_ = nullptr;
    AVPacket* packet_ = nullptr;
    AVFrame* frame_ = nullptr;
    PcmFormat format_;
};

}  // namespace refhost
