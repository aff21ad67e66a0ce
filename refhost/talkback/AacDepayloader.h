#pragma once
// Tested by tests/refhost/talkback/TalkDepayloader_test.cpp.

#include "refhost/talkback/TalkDepayloader.h"

namespace refhost
{

/// AAC-hbr without interleaving: access unit headers of 13 bits size and 3 bits index (RFC 3640, section
/// 3.3.6).
class AacDepayloader : public TalkDepayloader
{
public:
    bool read(const std::uint8_t* payload, std::size_t size, std::uint32_t timestamp, bool marker,
              std::vector<Frame>& frames) override;
    void reset() override;

private:
    bool readWhole(const std::uint8_t* headers, std::size_t count, const std::uint8_t* data, std::size_t size,
                   std::vector<Frame>& frames);
    bool readFragment(std::size_t unitSize, const std::uint8_t* data, std::size_t size,
                      std::uint32_t timestamp, bool marker, std::vector<Frame>& frames);

    std::vector<std::uint8_t> unit_;  // fragments so far of an incomplete access unit
    std::size_t unitSize_ = 0;        // of the whole unit; 0: none is incomplete
    std::uint32_t unitTimestamp_ = 0;
};

}  // namespace refhost
