#pragma once
// Tested by tests/refhost/talkback/TalkDecoder_test.cpp.

#include <memory>

#include "refhost/talkback/FrameDecoder.h"
#include "refhost/talkback/LossConcealer.h"
#include "refhost/talkback/SampleConverter.h"
#include "refhost/talkback/TalkDecoder.h"

namespace refhost
{

/// Decodes one codec, conceals losses and converts to the output's format.
class ConvertingDecoder : public TalkDecoder
{
public:
    /// \param clockRate  RTP clock of the track, Hz
    ConvertingDecoder(std::unique_ptr<FrameDecoder> codec, int clockRate, const PcmFormat& format);

    bool decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples) override;
    void conceal(std::uint32_t ticks, std::vector<std::int16_t>& samples) override;
    void reset() override;

private:
    const std::unique_ptr<FrameDecoder> codec_;
    const std::uint32_t clockRate_;
    LossConcealer concealer_;
    SampleConverter converter_;
    std::vector<std::int16_t> decoded_;
};

}  // namespace refhost
