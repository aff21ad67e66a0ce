#pragma once
// Tested by tests/refhost/capture/FileRun_test.cpp.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "refhost/base/Times.h"
#include "refhost/capture/DecodeTimes.h"
#include "refhost/capture/FilePlayer.h"
#include "refhost/capture/MediaTap.h"
#include "refhost/capture/PacketTap.h"
#include "refhost/capture/SourceRun.h"
#include "refhost/rtp/payload/Packetizer.h"

namespace refhost
{

/// Makes of the units of one track of a file what viewers and recordings take. Threads: one at a time.
class FileTrackOutput
{
public:
    using Taps = SourceRun::TrackTaps;

    /// \param format  of the first units
    /// \param epoch   instant 0 of the timeline
    FileTrackOutput(const MediaFormat& format, MonotonicTime epoch, std::shared_ptr<MediaTap> mediaTap);

    Codec codec() const
    {
        return codec_;
    }

    /// Sets where packets go from now on, by payload size.
    void setTaps(const Taps& taps);

    void send(FilePlayer::Item item);

private:
    std::uint32_t timestampOf(const FilePlayer::Item& item);

    const Codec codec_;
    const RtpClock rtpClock_;
    const MonotonicTime epoch_;
    const std::shared_ptr<MediaTap> mediaTap_;
    Taps taps_;
    std::map<int, std::unique_ptr<Packetizer>> packetizers_;  ///< by payload size
    DecodeTimes decodeTimes_;
    std::shared_ptr<const MediaFormat> timedFormat_;  ///< that decodeTimes_ is set for
    std::optional<std::int64_t> next_;                ///< timestamp at the end of the last block of audio
};

}  // namespace refhost
