#include "hostapi/base/OrvaneTime.h"

#include <string>
#include <thread>

#include "tests/fakehost/FakeHost.h"

void OrvaneTime::wait(const OrvaneTime& span)
{
    FakeHost& host = FakeHost::instance();
    if (!host.isQuiet())
    {
        host.called("OrvaneTime", 0, "wait",
                    std::to_string(span.getSeconds()) + ", " + std::to_string(span.getMicroseconds()));
    }
    host.waited(std::chrono::seconds(span.getSeconds()) + std::chrono::microseconds(span.getMicroseconds()));
    // No time passes, but a thread that only waits must let others in.
    std::this_thread::yield();
}
