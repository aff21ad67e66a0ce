#pragma once
// Tested by tests/refhost/capture/CameraStream_test.cpp.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hostapi/description/SubMediaInfo.h"
#include "refhost/capture/MediaTap.h"
#include "refhost/capture/PacketTap.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// One run of a camera stream's source, from its start to its stop. It starts when it is made.
///
/// No operation waits for the source but awaitEnd(), which has a deadline. Threads: any. The events are called
/// on the run's own threads, must return soon and may not call back.
class SourceRun
{
public:
    using Clock = std::chrono::steady_clock;

    /// Taps by track id and payload size.
    using Taps = std::map<std::pair<std::string, int>, std::shared_ptr<PacketTap>>;

    struct Events
    {
        std::function<void()> described;                    ///< describe() returns something new
        std::function<void(const std::string& why)> ended;  ///< it gives nothing any more; once or more often
        /// Media are dated by their arrival; any number of times.
        std::function<void(const std::string& why)> clockUnusable;
        std::function<void()> stopped;  ///< what stop() asked for is done; the run may be destroyed
    };

    /// What a run is made of.
    struct Setup
    {
        StreamConfig config;
        std::string title;  ///< names the stream in the log
        /// How often the stream changed its means of reading the source: another number, another transport or
        /// another reader, where there are several.
        unsigned attempt = 0;
        std::shared_ptr<MediaTap> mediaTap;  ///< gets the encoded media of every track
        Taps taps;
        Events events;
    };

    /// \throws std::system_error when the system refuses a thread or a descriptor
    using Factory = std::function<std::unique_ptr<SourceRun>(Setup setup)>;

    SourceRun() = default;
    SourceRun(const SourceRun&) = delete;
    SourceRun& operator=(const SourceRun&) = delete;
    /// Abandons the source if it has not ended yet; no event is called any more.
    virtual ~SourceRun() = default;

    /// Sets where packets go from now on.
    virtual void setTaps(const Taps& taps) = 0;
    virtual void requestKeyFrame() = 0;

    /// How many RTP packets of any track came since the start.
    virtual std::uint64_t packetCount() const = 0;
    /// True when the source can be reached but not by this attempt's means.
    virtual bool mayWorkByAnotherTransport() const = 0;
    /// Describes the tracks.
    /// \param partial  true to be content with the tracks that are known by now, if there is one
    /// \param[out] tracks  filled on success
    /// \returns false while not all is known
    virtual bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const = 0;
    /// For how long the run has been busy with what it was asked for last; 0 when it is done.
    virtual Clock::duration busyFor() const = 0;

    /// Ends the run. No event but `stopped` is called after the return.
    virtual void stop() = 0;
    /// Has no event called any more, not even `stopped`.
    virtual void mute() = 0;
    /// Waits until stop() is done.
    /// \returns false when it is not by then
    virtual bool awaitEnd(Clock::time_point deadline) const = 0;
};

}  // namespace refhost
