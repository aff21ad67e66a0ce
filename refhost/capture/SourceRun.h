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
#include "refhost/capture/SourceFailure.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// One run of a camera stream's source, from start to stop. It starts when it is created.
///
/// No operation waits for the source except awaitEnd(), which has a deadline. Threads: any. Events are called
/// on the run's own threads; they must not block and must not call the run.
class SourceRun
{
public:
    using Clock = std::chrono::steady_clock;

    /// Taps by track id and payload size.
    using Taps = std::map<std::pair<std::string, int>, std::shared_ptr<PacketTap>>;
    /// Those of one track, by payload size.
    using TrackTaps = std::map<int, std::shared_ptr<PacketTap>>;

    static TrackTaps tapsOf(const Taps& taps, const std::string& trackId)
    {
        TrackTaps own;
        for (const auto& [key, tap] : taps)
        {
            if (key.first == trackId)
            {
                own.emplace(key.second, tap);
            }
        }
        return own;
    }

    struct Events
    {
        std::function<void()> described;                      ///< describe() has a new result
        std::function<void(const SourceFailure& why)> ended;  ///< no more media; called once or more often
        /// The source is tried by other means within the run; any number of calls.
        std::function<void(const std::string& why)> otherMeans;
        /// Media are dated by their arrival; any number of calls.
        std::function<void(const std::string& why)> clockUnusable;
        std::function<void()> stopped;  ///< stop() is complete; the run may be destroyed
    };

    /// Arguments of a run.
    struct Setup
    {
        StreamConfig config;
        std::string title;  ///< the stream's name in the log
        /// Number of changes of transport or reader so far; selects one where the source has several.
        unsigned attempt = 0;
        std::shared_ptr<MediaTap> mediaTap;  ///< receives the encoded media of every track
        Taps taps;
        Events events;
        bool serverClock = false;  ///< media are dated by their arrival, whatever the source says
    };

    /// \throws std::system_error when the system refuses a thread or a descriptor
    using Factory = std::function<std::unique_ptr<SourceRun>(Setup setup)>;

    SourceRun() = default;
    SourceRun(const SourceRun&) = delete;
    SourceRun& operator=(const SourceRun&) = delete;
    /// Abandons the source if it has not ended yet; no event is called afterwards.
    virtual ~SourceRun() = default;

    /// Sets the receivers of packets.
    virtual void setTaps(const Taps& taps) = 0;
    virtual void requestKeyFrame() = 0;

    /// Number of RTP packets of all tracks since the start.
    virtual std::uint64_t packetCount() const = 0;
    /// True when the source can be reached but not by this attempt's transport.
    virtual bool mayWorkByAnotherTransport() const = 0;
    /// Describes the tracks.
    /// \param partial      accept the tracks known so far, if there is one
    /// \param[out] tracks  set on success
    /// \returns false while tracks are missing
    virtual bool describe(bool partial, std::vector<SubMediaInfo>& tracks) const = 0;
    /// How long the present operation has taken; 0 when the run is idle.
    virtual Clock::duration busyFor() const = 0;

    /// Starts to end the run. Once this returns, `stopped` is the only event called.
    virtual void stop() = 0;
    /// Once this returns, no event is called, not even `stopped`.
    virtual void mute() = 0;
    /// Waits until stop() is complete.
    /// \returns false at the deadline
    virtual bool awaitEnd(Clock::time_point deadline) const = 0;
};

}  // namespace refhost
