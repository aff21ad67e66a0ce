#pragma once
// Tested by tests/refhost/capture/PipelineRunner_test.cpp.

#include <pthread.h>

#include <csignal>

namespace refhost
{

/// Blocks every signal while it lives, for the threads that are made meanwhile: new threads inherit the mask,
/// and signals are handled by the first thread. Threads: the one that makes it also ends it.
class AllSignalsBlocked
{
public:
    AllSignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~AllSignalsBlocked()
    {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

}  // namespace refhost
