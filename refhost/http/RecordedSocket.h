#pragma once
// Tested by tests/refhost/http/RecordedLive_test.cpp.

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/export/RecordedFragments.h"
#include "refhost/http/BackgroundWork.h"
#include "refhost/http/BodySource.h"
#include "refhost/http/Places.h"
#include "refhost/net/websocket/WebSocketFrames.h"

namespace refhost
{

/// The server's end of a WebSocket through which recordings are watched.
///
/// It reads ahead of its client by at most `maxAhead` bytes and what one reading makes, on the background pool; and on the
/// media's timeline not beyond where the client wants it to: browsers take from a WebSocket whatever comes, and would hold
/// all of a recording. The client says how far in lines of seconds on that timeline. Life and threads: as BodySource.
class RecordedSocket final : public BodySource,
                             public PooledWork,
                             public std::enable_shared_from_this<RecordedSocket>
{
public:
    static constexpr std::size_t maxAhead = std::size_t{256} * 1024;
    /// Max. bytes of a client's line.
    static constexpr std::size_t maxLine = 32;
    /// How long media that are being written are waited for before the next look.
    static constexpr Duration growthInterval = std::chrono::milliseconds(300);
    /// How soon one who may watch no longer is ended, while something is sent.
    static constexpr Duration checkInterval = std::chrono::seconds(1);

    struct Options
    {
        RecordedFragments::Request request;
        /// How much to send before the client has said how far; nothing: as much as it takes.
        std::optional<Duration> ahead;
        std::function<bool()> permitted;  ///< whether the client may go on
        Places::Place place;              ///< held until the end
    };

    /// \param work   outlives the socket
    /// \param clock  outlives the socket
    RecordedSocket(BackgroundWork& work, std::shared_ptr<const RecordingDirectory> directory,
                   const HostClock& clock, Options options);

    void start(std::function<void()> wake) override;
    void receive(std::string_view bytes) override;
    State read(std::size_t room, std::string& out) override;
    void cancel() override;

    /// The pool's part.
    MonotonicTime run(MonotonicTime now) override;

private:
    struct Made
    {
        std::string bytes;
        bool grows = false;  // nothing more at present
        bool ended = false;
    };

    bool takes(std::string_view payload);
    void goOn();
    Made make(Duration until);
    void add(const RecordedFragments::Next& next, std::string& out);
    Duration positionIn(const RecordedFragments::Range& range) const;

    BackgroundWork& work_;
    const HostClock& clock_;
    const Options options_;

    // The service's loop's alone:
    WebSocketFrames frames_;
    std::string answers_;
    std::string line_;
    std::optional<MonotonicTime> checked_;
    std::optional<MonotonicTime> sent_;

    // run()'s alone:
    std::unique_ptr<RecordedFragments> fragments_;
    std::optional<RecordedFragments::Next> held_;  // behind what the client wants
    bool started_ = false;

    Mutex mutex_;
    std::function<void()> wake_ OV_GUARDED_BY(mutex_);
    std::string ahead_ OV_GUARDED_BY(mutex_);
    std::size_t taken_ OV_GUARDED_BY(mutex_) = 0;  // of ahead_
    std::optional<Duration> until_ OV_GUARDED_BY(mutex_);
    bool ended_ OV_GUARDED_BY(mutex_) = false;
    bool cancelled_ OV_GUARDED_BY(mutex_) = false;
};

}  // namespace refhost
