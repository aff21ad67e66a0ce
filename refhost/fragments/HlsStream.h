#pragma once
// Tested by tests/refhost/fragments/HlsStream_test.cpp.

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/fragments/FragmentStreams.h"
#include "refhost/fragments/HlsWindow.h"
#include "refhost/threads/WorkPool.h"

namespace refhost
{

/// A stream's HLS while somebody asks for it: a viewer of the stream's fragments that fills a window, and the queries
/// that wait for what is to come.
///
/// Life: from the first query until nobody asked for `maxIdle`, or end(). Threads: any; run() is the pool's.
class HlsStream final : public PooledWork, public std::enable_shared_from_this<HlsStream>
{
public:
    /// Queries that wait at once; others are refused.
    static constexpr std::size_t maxWaiting = 512;
    /// How long a query waits for the first segment.
    static constexpr Duration maxStart = std::chrono::seconds(15);
    /// How long, in target durations, it waits for what comes next (draft-pantos-hls-rfc8216bis, section 6.2.5.2).
    static constexpr int maxTargets = 3;
    static constexpr Duration maxIdle = std::chrono::seconds(30);

    /// Takes what was found, once. It is `awaited` when the query was refused, and when it waited in vain.
    /// Threads: any; it must neither block nor call the stream.
    using Respond = std::function<void(const HlsFound& found)>;

    /// \param stream  not null
    /// \param pool    outlives every call of the stream's
    /// \param clock   outlives the stream
    static std::shared_ptr<HlsStream> start(std::shared_ptr<TappedStream> stream, WorkPool& pool,
                                            const HostClock& clock);
    HlsStream(const HlsStream&) = delete;
    HlsStream& operator=(const HlsStream&) = delete;

    /// Somebody asks: the stream lives on.
    /// \returns false when it is over
    bool touch();

    /// Answers a query now, or once it can be answered, or has waited for too long.
    /// \param cancelled  not null; set once nobody waits for the answer any more
    void ask(HlsQuery query, std::shared_ptr<const std::atomic<bool>> cancelled, Respond respond);

    /// Ends it. What waits is answered with `absent`.
    void end();

    const std::shared_ptr<TappedStream>& tapped() const
    {
        return stream_;
    }
    std::size_t waiting() const;

    /// The pool's part.
    MonotonicTime run(MonotonicTime now) override;

private:
    struct Waiting
    {
        HlsQuery query;
        MonotonicTime deadline;
        std::shared_ptr<const std::atomic<bool>> cancelled;
        Respond respond;
    };

    struct Answer
    {
        Respond respond;
        HlsFound found;
    };

    HlsStream(std::shared_ptr<TappedStream> stream, const HostClock& clock);

    bool readAll() OV_REQUIRES(mutex_);
    void takeAnswers(std::vector<Answer>& answers) OV_REQUIRES(mutex_);
    void forgetCancelled() OV_REQUIRES(mutex_);

    const std::shared_ptr<TappedStream> stream_;
    const HostClock& clock_;

    mutable Mutex mutex_;
    HlsWindow window_ OV_GUARDED_BY(mutex_);
    std::list<Waiting> waiting_ OV_GUARDED_BY(mutex_);
    MonotonicTime asked_ OV_GUARDED_BY(mutex_);
    MonotonicTime looked_ OV_GUARDED_BY(mutex_);  // for queries that can be answered
    bool ended_ OV_GUARDED_BY(mutex_) = false;
    std::unique_ptr<FragmentViewer> viewer_ OV_GUARDED_BY(mutex_);  // null once it ended
};

/// The streams that are asked for as HLS. Threads: any.
class HlsStreams
{
public:
    /// \param fragments  not null
    /// \param clock      outlives this
    HlsStreams(std::shared_ptr<FragmentStreams> fragments, const HostClock& clock);
    /// Ends all of them.
    ~HlsStreams();
    HlsStreams(const HlsStreams&) = delete;
    HlsStreams& operator=(const HlsStreams&) = delete;

    /// Starts the stream's HLS if it does not run.
    /// \returns null when no such stream is configured
    std::shared_ptr<HlsStream> find(int cameraId, int streamId);

private:
    const std::shared_ptr<FragmentStreams> fragments_;
    const HostClock& clock_;
    Mutex mutex_;
    std::unordered_map<std::uint64_t, std::shared_ptr<HlsStream>> streams_ OV_GUARDED_BY(mutex_);
    WorkPool pool_;  // last: its threads end first
};

}  // namespace refhost
