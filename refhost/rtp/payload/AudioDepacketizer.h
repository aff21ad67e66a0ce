#pragma once

#include <memory>
#include <string>

#include "refhost/rtp/payload/Depacketizer.h"

namespace refhost
{

/// Audio of which every packet is a unit of its own: PCMU and PCMA (RFC 3551, section 4.5.14), Opus
/// (RFC 7587). Threads: one at a time.
class AudioDepacketizer : public Depacketizer
{
public:
    /// \returns null with `error` set for PCM that is not of 8000 Hz and one channel, and Opus that is not of 48000 Hz
    static std::unique_ptr<Depacketizer> make(Codec codec, const PayloadDescription& track, Deliver deliver,
                                              std::string& error);

    void flush() override {}
    void reset() override {}

protected:
    const char* take(const RtpPacketView& packet, std::uint32_t lost) override;

private:
    AudioDepacketizer(Codec codec, int channels, Deliver deliver);
    void describe();

    const CodecInfo& info_;
    int channels_;
};

}  // namespace refhost
