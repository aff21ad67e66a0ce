#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "refhost/base/HostClock.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/playback/PlaybackSource.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/playback/UnitReader.h"
#include "refhost/rtp/payload/Packetizer.h"

namespace refhost
{

/// A camera's recorded media in RTP packets, of an interval.
class RecordedSource : public PlaybackSource
{
public:
    /// The part of the recordings that is played.
    struct Interval
    {
        int cameraId = 0;
        WallTime begin;
        WallTime end;
    };

    /// \param directory  where segments are found; null where nothing is recorded
    /// \param clock      outlives the source
    RecordedSource(std::shared_ptr<const RecordingDirectory> directory, const HostClock& clock,
                   const Interval& interval);
    ~RecordedSource() override;

    bool open(const Request& request) override;
    Result read(PlaybackUnit& out) override;

private:
    /// A coded unit that waits for its successors.
    struct Waiting
    {
        CodedUnit unit;
        WallTime time;  // in the order of play
        std::shared_ptr<const MediaFormat> format;
        std::uint32_t range = 0;
    };

    /// What makes one track's packets.
    struct Packing
    {
        std::unique_ptr<Packetizer> packetizer;  ///< null before the track is requested
        Codec codec{};
        int payloadSize = 0;
    };

    /// What its successors imply for the first waiting unit.
    struct Outlook
    {
        bool enough = false;
        bool last = true;
        WallTime due;
        std::optional<WallTime> next;  ///< when the next unit of the track is displayed, where that is known
    };

    /// One pass through the recording.
    struct Reading
    {
        Request request;
        WallTime end;  // in the order of play
        std::unique_ptr<UnitReader> reader;
        std::deque<Waiting> waiting;
        UnitReader::Result state = UnitReader::Result::unit;  // of the last read
        std::array<bool, 2> done{};                           // video, audio: the end was passed
        std::array<WallTime, 2> lastDue{};
        std::uint32_t range = 0;
    };

    std::unique_ptr<Reading> startReading(const Request& request);
    std::unique_ptr<UnitReader> makeReader(const Request& request) const;
    static void readOne(Reading& reading);
    static Outlook outlookOf(const Reading& reading);
    static bool takesHead(Reading& reading, Outlook& outlook);
    static void preparePacking(const Track& track, Packing& packing);
    void packetize(const Outlook& outlook);
    Duration lengthOf(const Waiting& head, const Outlook& outlook);
    void add(const AccessUnitPtr& unit, const Waiting& from, const Outlook& outlook, Duration length);

    const std::shared_ptr<const RecordingDirectory> directory_;
    const HostClock& clock_;
    const Interval interval_;
    std::optional<int> streamId_;
    std::unique_ptr<Reading> reading_;
    std::array<Packing, 2> packing_;  // video, audio
    std::array<Duration, 2> usualLength_{std::chrono::milliseconds(40), std::chrono::milliseconds(20)};
    std::deque<PlaybackUnit> made_;
};

}  // namespace refhost
