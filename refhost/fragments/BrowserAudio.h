#pragma once
// Tested by tests/refhost/fragments/BrowserAudio_test.cpp.

#include <cstddef>
#include <deque>
#include <memory>

#include "refhost/base/Mutex.h"
#include "refhost/fragments/FragmentStream.h"
#include "refhost/fragments/OpusTranscoder.h"
#include "refhost/threads/WorkPool.h"

namespace refhost
{

/// A stream's units on the path to its fragments: audio that browsers do not play is transcoded to Opus while somebody
/// listens, once for all of them, by a thread of a pool.
///
/// Viewers learn of the Opus track also before anybody listens, so that the first listener need not start again.
///
/// Threads: as EncodedUnitSink, which never waits for the pool; the listeners' any; run() is the pool's.
class BrowserAudio final : public EncodedUnitSink,
                           public PooledWork,
                           public std::enable_shared_from_this<BrowserAudio>
{
public:
    /// Blocks that wait to be transcoded; with more, the oldest go.
    static constexpr std::size_t maxWaiting = 100;

    /// \param fragments  not null
    /// \param pool       not null; closed by its owner
    BrowserAudio(std::shared_ptr<FragmentStream> fragments, std::shared_ptr<WorkPool> pool);

    void onEncodedUnit(const EncodedUnitPtr& unit) override;
    void onDiscontinuity() override;

    void addListener();
    void removeListener();

    /// The pool's part.
    MonotonicTime run(MonotonicTime now) override;

    /// Blocks that wait.
    std::size_t waiting() const;

private:
    bool isTranscoded(const EncodedUnitPtr& unit);

    const std::shared_ptr<FragmentStream> fragments_;
    const std::shared_ptr<WorkPool> pool_;
    mutable Mutex mutex_;
    std::size_t listeners_ OV_GUARDED_BY(mutex_) = 0;
    std::deque<EncodedUnitPtr> waiting_ OV_GUARDED_BY(mutex_);
    std::shared_ptr<const MediaFormat> seen_ OV_GUARDED_BY(mutex_);  // last format of audio
    bool transcodes_ OV_GUARDED_BY(mutex_) = false;                  // it
    std::unique_ptr<OpusTranscoder> transcoder_;                     // run()'s alone
};

}  // namespace refhost
