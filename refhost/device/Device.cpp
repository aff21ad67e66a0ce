#include "refhost/device/Device.h"

#include <mutex>
#include <utility>

namespace refhost
{
namespace
{

struct Served
{
    std::mutex mutex;
    std::shared_ptr<StreamDirectory> streams;
    std::shared_ptr<RecordingIndex> recordings;

    static Served& instance()
    {
        // Never destroyed: connections may be served until the very end of the process.
        static auto* const served = new Served;
        return *served;
    }
};

}  // namespace

void Device::setStreams(std::shared_ptr<StreamDirectory> streams)
{
    Served& served = Served::instance();
    const std::lock_guard<std::mutex> guard(served.mutex);
    served.streams.swap(streams);
}

std::shared_ptr<StreamDirectory> Device::streams()
{
    Served& served = Served::instance();
    const std::lock_guard<std::mutex> guard(served.mutex);
    return served.streams;
}

void Device::setRecordings(std::shared_ptr<RecordingIndex> recordings)
{
    Served& served = Served::instance();
    const std::lock_guard<std::mutex> guard(served.mutex);
    served.recordings.swap(recordings);
}

std::shared_ptr<RecordingIndex> Device::recordings()
{
    Served& served = Served::instance();
    const std::lock_guard<std::mutex> guard(served.mutex);
    return served.recordings;
}

}  // namespace refhost
