#pragma once
// Tested by tests/refhost/http/HttpConnection_test.cpp, tests/refhost/http/HttpService_test.cpp.

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

#include "refhost/threads/WorkPool.h"

namespace refhost
{

/// What the HTTP service does beside its event loop because it may block: a bounded number of tasks on two
/// threads. A task is a call, or a body that is made while it is sent. \see BackgroundBody
///
/// Threads: any.
class BackgroundWork
{
public:
    /// One of the tasks, while it lives.
    using Permit = std::shared_ptr<void>;

    /// \param max  tasks at once, those that wait for a thread included
    explicit BackgroundWork(int max);
    BackgroundWork(const BackgroundWork&) = delete;
    BackgroundWork& operator=(const BackgroundWork&) = delete;

    /// \returns null when there are too many
    Permit admit();

    /// Has `task` run once, on a thread of the pool.
    /// \param permit  not null; held until the task has run
    void run(std::function<void()> task, Permit permit);

    /// Has `work` run soon. \see WorkPool::wake()
    void wake(const std::shared_ptr<PooledWork>& work);

    /// Waits for what runs now and drops the rest.
    void close();

    /// Number of permits.
    std::size_t count() const;

private:
    const std::size_t max_;
    const std::shared_ptr<std::atomic<std::size_t>> count_ = std::make_shared<std::atomic<std::size_t>>(0);
    WorkPool pool_;
};

}  // namespace refhost
