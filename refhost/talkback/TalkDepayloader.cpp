#include "refhost/talkback/TalkDepayloader.h"

#include <algorithm>

#include "refhost/media/Codec.h"
#include "refhost/talkback/AacDepayloader.h"

namespace refhost
{
namespace
{

/// A packet holds one frame and nothing else.
class WholeFrameDepayloader : public TalkDepayloader
{
public:
    WholeFrameDepayloader(const CodecInfo& info, int channels) : info_(info), channels_(std::max(channels, 1))
    {
    }

    bool read(const std::uint8_t* payload, std::size_t size, std::uint32_t, bool,
              std::vector<Frame>& frames) override
    {
        frames.clear();
        const std::uint32_t ticks = info_.samplesIn(payload, size, channels_);
        if (ticks == 0)
        {
            return false;
        }
        frames.push_back({payload, size, ticks});
        return true;
    }

    void reset() override {}

private:
    const CodecInfo& info_;
    const int channels_;
};

}  // namespace

std::unique_ptr<TalkDepayloader> TalkDepayloader::make(const SubMediaInfo& track)
{
    const std::optional<Codec> codec = codecEncodedAs(track.encodingName);
    if (!codec || infoOf(*codec).kind != MediaKind::audio)
    {
        return nullptr;
    }
    switch (infoOf(*codec).unitEnd)
    {
        case CodecInfo::UnitEnd::packet:
            return std::make_unique<WholeFrameDepayloader>(infoOf(*codec), track.channels);
        case CodecInfo::UnitEnd::marker:
            return std::make_unique<AacDepayloader>();
    }
    return nullptr;
}

}  // namespace refhost
