#pragma once
// Tested by tests/refhost/fragments/HlsWindow_test.cpp.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/fragments/FragmentStream.h"

namespace refhost
{

/// What a client of HLS asks for. A value type.
struct HlsQuery
{
    enum class Kind
    {
        multivariant,  ///< the multivariant playlist
        playlist,      ///< the media playlist
        file           ///< an init segment, a segment or a part
    };

    Kind kind = Kind::playlist;
    std::optional<std::uint64_t> segment{};  ///< of a playlist: `_HLS_msn`, the segment that it has to hold
    std::optional<std::uint64_t> part{};  ///< of a playlist: `_HLS_part`, the part of it that it has to hold
    std::string name{};                   ///< of a file
};

/// What there is of it. A value type.
struct HlsFound
{
    enum class State
    {
        there,
        awaited,  ///< not yet: it comes with the media
        absent,   ///< there is no such thing, or not any more
        invalid   ///< it asks for what no client can know of
    };

    State state = State::absent;
    std::shared_ptr<const std::string> text{};   ///< the playlist
    std::vector<FragmentStream::Bytes> bytes{};  ///< the file, in blocks
    int target = 0;                              ///< the target duration in seconds; 0: not known yet
};

/// The newest segments of a stream as low-latency HLS (RFC 8216 and its successor, draft-pantos-hls-rfc8216bis):
/// fragments are put together to parts, parts to segments, and the playlist names them. Nothing is copied.
///
/// A segment begins with a key frame, unless none comes for the target duration, which the first segment sets: there
/// is no playlist before that is whole. Names are never used twice: the window's own name is part of them. Parts are
/// numbered through all segments, so that the part hinted at is the next one whatever segment it falls into. What the
/// playlist names no more is kept as long again, for clients that still have it on their list. A gap in the media, and
/// another format, is a discontinuity.
///
/// Threads: one at a time.
class HlsWindow
{
public:
    static constexpr Duration minSegment = std::chrono::seconds(1);
    static constexpr Duration maxSegment = std::chrono::seconds(10);
    static constexpr Duration maxPart = std::chrono::milliseconds(300);
    /// The media do not continue over a longer gap.
    static constexpr Duration maxGap = std::chrono::seconds(2);
    /// Segments in the playlist, and segments kept.
    static constexpr std::size_t maxListed = 7;
    static constexpr std::size_t maxKept = std::size_t{2} * maxListed;
    /// Bytes of the segments kept, and of one of them. Of those that are too large the oldest go, down to one.
    static constexpr std::size_t maxBytes = std::size_t{48} * 1024 * 1024;
    static constexpr std::size_t maxSegmentBytes = maxBytes / 3;

    /// \param name   of this window, unlike that of any other of the stream: letters and digits
    /// \param first  number of the first segment, above those of all former windows of the stream
    HlsWindow(std::string name, std::uint64_t first);

    /// The next fragments are of these tracks.
    void begin(const FragmentStream::Description& description);

    /// Adds what a viewer of all tracks read.
    /// \param next      with a fragment
    /// \param captured  when its frame was captured
    /// \returns whether queries may find more than before
    bool add(const FragmentStream::Next& next, WallTime captured);

    HlsFound find(const HlsQuery& query) const;

    std::size_t bytes() const;

private:
    /// An init segment.
    struct Init
    {
        std::string name;
        FragmentStream::Bytes bytes;
    };

    struct Part
    {
        std::vector<FragmentStream::Bytes> fragments;
        Duration start{};
        Duration end{};      // as far as the frames say
        bool timed = false;  // it has a frame of the track that times are of
        bool independent = false;
    };

    struct Segment
    {
        std::uint64_t number = 0;
        std::uint64_t firstPart = 0;  // its number
        std::uint64_t era = 0;        // discontinuities up to its start, and some number
        std::shared_ptr<const Init> init;
        WallTime captured;
        Duration start{};
        Duration length{};  // once it is whole
        bool independent = false;
        std::vector<Part> parts;
        std::size_t frames = 0;
        std::size_t bytes = 0;
    };

    bool addTimed(const FragmentStream::Next& next, WallTime captured);
    bool isCut(const FragmentStream::Next& next) const;
    Duration maxLength() const;
    void breakOff();
    void openSegment(const FragmentStream::Next& next, WallTime captured);
    void closeSegment(Duration end);
    bool addFrame(const FragmentStream::Next& next, bool key);
    bool closePart();
    void setTargets();
    void trim();
    void append(const FragmentStream::Next& next);
    HlsFound findFile(std::string_view name) const;
    HlsFound findPart(std::uint64_t number) const;
    HlsFound::State stateOf(const HlsQuery& query) const;
    const Segment* segmentAt(std::uint64_t number) const;
    std::string nameOf(char kind, std::uint64_t number, const char* ending) const;
    void render();
    void renderParts(const Segment& segment, std::string& out) const;
    std::size_t firstListed() const;
    std::string multivariant() const;

    std::string name_;
    std::deque<Segment> closed_;
    std::optional<Segment> open_;
    Part part_;                   // the one that is being filled
    std::uint64_t nextSegment_;   // number of the next one to open
    std::uint64_t nextPart_ = 0;  // number of the part that is being filled
    std::uint64_t era_;           // of the next segment
    std::uint64_t inits_ = 0;     // so far
    FragmentStream::Description description_;
    std::shared_ptr<const Init> init_;
    std::optional<Duration> end_;  // of the last frame
    bool discontinuous_ = false;   // the next segment does not continue the last one
    std::size_t bytes_ = 0;        // of all segments
    int target_ = 0;               // seconds; 0: no segment was whole yet
    Duration partTarget_ = maxPart;
    std::shared_ptr<const std::string> playlist_;
};

}  // namespace refhost
