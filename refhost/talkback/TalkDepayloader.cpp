#include "refhost/talkback/TalkDepayloader.h"

#include "refhost/talkback/AacDepayloader.h"

namespace refhost
{
namespace
{

/// One byte is one sample of one channel.
class PcmDepayloader : public TalkDepayloader
{
public:
    explicit PcmDepayloader(int channels) : channels_(channels > 0 ? static_cast<std::size_t>(channels) : 1)
    {
    }

    bool read(const std::uint8_t* payload, std::size_t size, std::uint32_t, bool,
              std::vector<Frame>& frames) override
    {
        frames.clear();
        if (size == 0 || size % channels_ != 0)
        {
            return false;
        }
        frames.push_back({payload, size, static_cast<std::uint32_t>(size / channels_)});
        return true;
    }

    void reset() override {}

private:
    const std::size_t channels_;
};

}  // namespace

std::unique_ptr<TalkDepayloader> TalkDepayloader::make(const SubMediaInfo& track)
{
    if (track.encodingName == "PCMU" || track.encodingName == "PCMA")
    {
        return std::make_unique<PcmDepayloader>(track.channels);
    }
    if (track.encodingName == "MPEG4-GENERIC")
    {
        return std::make_unique<AacDepayloader>();
    }
    return nullptr;
}

}  // namespace refhost
