#include "hostapi/base/OrvaneTime.h"

#include <cerrno>
#include <ctime>

void OrvaneTime::wait(const OrvaneTime& span)
{
    // Seconds and microseconds separately: their sum in microseconds could overflow.
    timespec left{};
    left.tv_sec = span.getSeconds();
    left.tv_nsec = span.getMicroseconds() * 1000;
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR)
    {
    }
}
