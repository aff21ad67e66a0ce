#pragma once
// Tested by tests/refhost/http/HttpConnection_test.cpp, tests/refhost/http/HttpService_test.cpp.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "refhost/base/Mutex.h"
#include "refhost/http/BackgroundWork.h"
#include "refhost/http/BodySource.h"

namespace refhost
{

/// What a BackgroundBody sends: made part by part, on a thread of the background pool. Threads: one at a time.
class BodyProducer
{
public:
    virtual ~BodyProducer() = default;

    /// Appends the next bytes to `out`, some 64 KiB. It may block for a short time.
    /// \returns false when there are no more after these
    /// \throws std::exception when the body cannot be completed: the connection is cut, and the reason logged
    virtual bool produce(std::string& out) = 0;
};

/// A body whose making blocks: a producer runs on the background pool, ahead of the client by at most `maxAhead` bytes
/// and what it makes at once.
///
/// A client that takes nothing costs no thread, only those bytes. Threads: as BodySource.
class BackgroundBody final : public BodySource,
                             public PooledWork,
                             public std::enable_shared_from_this<BackgroundBody>
{
public:
    static constexpr std::size_t maxAhead = std::size_t{512} * 1024;
    /// What it makes at once, and how much is left when it goes on: each turn of a thread costs.
    static constexpr std::size_t batch = maxAhead / 2;

    /// \param work    outlives the body
    /// \param permit  of `work`; not null
    static std::shared_ptr<BackgroundBody> make(BackgroundWork& work, BackgroundWork::Permit permit,
                                                std::unique_ptr<BodyProducer> producer);

    void start(std::function<void()> wake) override;
    State read(std::size_t room, std::string& out) override;
    void cancel() override;

    /// The pool's part.
    MonotonicTime run(MonotonicTime now) override;

private:
    BackgroundBody(BackgroundWork& work, BackgroundWork::Permit permit,
                   std::unique_ptr<BodyProducer> producer);

    void finish(State end);

    BackgroundWork& work_;
    std::unique_ptr<BodyProducer> producer_;  // run()'s alone
    Mutex mutex_;
    BackgroundWork::Permit permit_ OV_GUARDED_BY(mutex_);
    std::function<void()> wake_ OV_GUARDED_BY(mutex_);
    std::string ahead_ OV_GUARDED_BY(mutex_);
    std::size_t taken_ OV_GUARDED_BY(mutex_) = 0;  // of ahead_
    State end_ OV_GUARDED_BY(mutex_) = State::more;
    bool cancelled_ OV_GUARDED_BY(mutex_) = false;
};

}  // namespace refhost
