#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/threads/OVThread.h"
#include "support/function.h"

/// A thread that calls one body again and again until it is stopped.
///
/// Held through SafePointer<GThread>. The destructor stops a running thread first.
///
/// Threads: start(), stop() and IsRunning() from any thread, one after the other where they meet; a stop()
/// waits for the body, so it must not be called with a lock held that the body takes. From the thread's own
/// body or hooks stop() only asks for the end, and start() changes nothing. The body and the hooks run on the
/// thread itself, never at once.
class OV_HOST_API GThread : public OVThread
{
public:
    /// Makes a thread that does not run yet.
    /// \param run     the body: called repeatedly while the thread runs; its result does not end the thread
    /// \param name    of the thread; cut to the system's limit
    /// \param before  called once on the new thread before the first run
    /// \param after   called once on the thread after the last run
    GThread(function<int> run, const std::string& name, function<int> before, function<int> after);
    ~GThread() noexcept(false) override;

    /// Starts the thread; a thread that was stopped can be started again.
    /// \returns non-zero on success (also when it runs already), zero when no thread could be made
    int start();

    /// Ends the thread after the present call of the body and does not return while the body executes.
    /// Called from the body itself it only asks for the end. Without a running thread it does nothing.
    void stop();

    /// Does nothing and returns 0; for hooks that are not needed.
    static int emptyFun();

private:
    struct Body;
    Body* body_;
};
