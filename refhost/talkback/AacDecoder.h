#pragma once

#include <memory>
#include <string>

#include "refhost/talkback/FrameDecoder.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace refhost
{

/// AAC access units without any framing, decoded by libavcodec.
class AacDecoder : public FrameDecoder
{
public:
    /// \param config    AudioSpecificConfig (ISO/IEC 14496-3, section 1.6.2.1), as bytes
    /// \param recorded  what the sound is described as, which holds until the first frame
    /// \returns null for one that cannot be decoded
    static std::unique_ptr<AacDecoder> make(const std::string& config, const PcmFormat& recorded);

    ~AacDecoder() override;
    AacDecoder(const AacDecoder&) = delete;
    AacDecoder& operator=(const AacDecoder&) = delete;

    PcmFormat format() const override
    {
        return format_;
    }
    bool decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples) override;
    void reset() override;

private:
    explicit AacDecoder(const PcmFormat& recorded);

    bool open(const std::string& config);
    bool append(std::vector<std::int16_t>& samples);

    AVCodecContext* context_ = nullptr;
    AVPacket* packet_ = nullptr;
    AVFrame* frame_ = nullptr;
    PcmFormat format_;
};

}  // namespace refhost
