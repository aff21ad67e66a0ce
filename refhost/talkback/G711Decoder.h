#pragma once

#include <array>

#include "refhost/talkback/FrameDecoder.h"

namespace refhost
{

/// PCMU and PCMA: one byte is one sample (ITU-T G.711).
class G711Decoder : public FrameDecoder
{
public:
    enum class Law
    {
        mu,
        a
    };

    G711Decoder(Law law, const PcmFormat& format);

    PcmFormat format() const override
    {
        return format_;
    }
    bool decode(const std::uint8_t* frame, std::size_t size, std::vector<std::int16_t>& samples) override;
    void reset() override {}

private:
    using Table = std::array<std::int16_t, 256>;

    static Table muLaw();
    static Table aLaw();

    const PcmFormat format_;
    const Table table_;
};

}  // namespace refhost
