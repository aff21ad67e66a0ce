#pragma once
// Tested by tests/refhost/fragments/FragmentStream_test.cpp.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// The live media of one stream as MP4 fragments, for any number of viewers.
///
/// The encoded units of the present GOP and of the one before are kept. A fragment is made when the first viewer
/// reads it, by that viewer's thread, once: the stream's own thread only appends a pointer. A viewer is a cursor; one
/// that falls behind what is kept goes on with the newest key frame, and loses what lies between.
///
/// Threads: any.
class FragmentStream final : public EncodedUnitSink
{
public:
    using Bytes = std::shared_ptr<const std::vector<std::uint8_t>>;

    /// Bytes of units that are kept at most: with more than that since the last key frame, viewers wait for the next.
    static constexpr std::size_t maxKept = std::size_t{24} * 1024 * 1024;
    static constexpr std::size_t maxUnits = 20000;
    /// How long viewers wait for audio that does not come with the first key frame, so that their init segment has both
    /// tracks.
    static constexpr Duration maxAudioWait = std::chrono::milliseconds(500);

    /// The tracks that viewers get.
    struct Description
    {
        std::shared_ptr<const MediaFormat> video;  ///< null: none
        std::shared_ptr<const MediaFormat> audio;  ///< null: none
    };

    /// What a viewer gets next. At most one of the two is set; none of them: nothing at present.
    struct Next
    {
        std::optional<Description>
            description;  ///< the fragments behind it are of these tracks: send an init segment
        Bytes fragment;
        bool keyFrame = false;   ///< of the fragment: of video
        bool video = false;      ///< of the fragment
        MonotonicTime captured;  ///< of the fragment
        Duration decode{};       ///< of the fragment: its time on the media's timeline
        Duration duration{};     ///< of the fragment
    };

    /// A viewer's place. A value type.
    struct Cursor
    {
        bool wantsAudio = true;
        std::uint64_t next = 0;    ///< number of the unit; 0: not started
        std::uint64_t format = 0;  ///< number of the description that it has; 0: none
    };

    /// The tracks that a stream has.
    struct Expected
    {
        bool video = true;
        bool audio = true;
    };

    /// \param clock  outlives the stream
    explicit FragmentStream(const HostClock& clock);

    /// Declares which tracks the stream has, once that is known. Until then video and audio are expected.
    void expect(Expected expected);

    /// Declares the format of audio that may come later, so that viewers need not start again when it does.
    void announceAudio(const std::shared_ptr<const MediaFormat>& format);

    void onEncodedUnit(const EncodedUnitPtr& unit) override;
    void onDiscontinuity() override;

    /// The next thing for a viewer, whose cursor moves over it.
    Next read(Cursor& cursor);

    /// Calls `wake` for each new unit, of audio only those that want it, until unsubscribe(). It is called with the subscribers' lock held: it must neither
    /// block nor call the stream.
    /// \returns a number, for unsubscribe()
    std::uint64_t subscribe(std::function<void()> wake, bool audio = true);
    void unsubscribe(std::uint64_t subscription);
    std::size_t subscribers() const;

private:
    struct Kept
    {
        EncodedUnitPtr unit;
        Duration duration{};
        std::uint64_t generation;  // of its track's format
        Bytes fragment;            // once a viewer has read it
    };

    /// What is known of a track.
    struct Track
    {
        std::shared_ptr<const MediaFormat> format;
        std::uint64_t generation = 0;  // number of the first description that has the format
        std::optional<MonotonicTime> lastDecode;
        Duration step{};
    };

    struct Subscriber
    {
        std::function<void()> wake;
        bool audio;
    };

    bool append(const EncodedUnitPtr& unit, bool& forAll);
    bool accept(const EncodedUnit& unit) OV_REQUIRES(mutex_);
    void setFormat(Track& track, const std::shared_ptr<const MediaFormat>& format) OV_REQUIRES(mutex_);
    void trim() OV_REQUIRES(mutex_);
    void forget() OV_REQUIRES(mutex_);
    bool described() const OV_REQUIRES(mutex_);
    std::uint64_t head() const OV_REQUIRES(mutex_);
    std::size_t indexOf(std::uint64_t number) const OV_REQUIRES(mutex_);
    bool isStart(const EncodedUnit& unit) const OV_REQUIRES(mutex_);
    const Bytes& fragmentOf(std::uint64_t number, Kept& kept) OV_REQUIRES(mutex_);
    static Duration stepOf(Track& track, const EncodedUnit& unit);

    const HostClock& clock_;

    mutable Mutex mutex_;
    Expected expected_ OV_GUARDED_BY(mutex_);
    std::deque<Kept> units_ OV_GUARDED_BY(mutex_);
    std::size_t bytes_ OV_GUARDED_BY(mutex_) = 0;
    std::uint64_t base_ OV_GUARDED_BY(mutex_) = 1;      // number of the oldest unit
    std::uint64_t start_ OV_GUARDED_BY(mutex_) = 0;     // newest unit to start from; 0: none
    std::uint64_t previous_ OV_GUARDED_BY(mutex_) = 0;  // the one before; 0: none
    std::uint64_t formats_ OV_GUARDED_BY(mutex_) = 0;   // number of the present description
    Track video_ OV_GUARDED_BY(mutex_);
    Track audio_ OV_GUARDED_BY(mutex_);
    std::optional<MonotonicTime> origin_ OV_GUARDED_BY(mutex_);  // begin of the media's timeline

    /// Apart, so that those who are woken first read while others are still being woken. Never held with the other.
    mutable Mutex wakeMutex_;
    std::map<std::uint64_t, Subscriber> subscribers_ OV_GUARDED_BY(wakeMutex_);
    std::uint64_t subscriptions_ OV_GUARDED_BY(wakeMutex_) = 0;
};

}  // namespace refhost
