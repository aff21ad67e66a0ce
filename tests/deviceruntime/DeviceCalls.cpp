#include "tests/deviceruntime/DeviceCalls.h"

#include <utility>

DeviceCalls& DeviceCalls::instance()
{
    static DeviceCalls* const calls = new DeviceCalls;
    return *calls;
}

void DeviceCalls::note(const std::string& call)
{
    const std::lock_guard<std::mutex> guard(instance().mutex_);
    instance().calls_ += (instance().calls_.empty() ? "" : " ") + call;
}

std::string DeviceCalls::take()
{
    const std::lock_guard<std::mutex> guard(instance().mutex_);
    return std::exchange(instance().calls_, std::string());
}
