#include "refhost/media/Device.h"

#include <mutex>
#include <utility>

#include "refhost/base/ChangeSignal.h"

namespace refhost
{
namespace
{

struct Served
{
    std::mutex mutex;
    std::shared_ptr<StreamDirectory> streams;
    std::shared_ptr<RecordingIndex> recordings;
    bool recordingsExpected = false;

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
    {
        const std::lock_guard<std::mutex> guard(served.mutex);
        served.recordings.swap(recordings);
        served.recordingsExpected = false;
    }
    ChangeSignal::instance().announce();
}

void Device::expectRecordings()
{
    Served& served = Served::instance();
    const std::lock_guard<std::mutex> guard(served.mutex);
    served.recordingsExpected = true;
}

bool Device::recordingsExpected()
{
    Served& served = Served::instance();
    const std::lock_guard<std::mutex> guard(served.mutex);
    return served.recordingsExpected;
}

std::shared_ptr<RecordingIndex> Device::recordings()
{
    Served& served = Served::instance();
    const std::lock_guard<std::mutex> guard(served.mutex);
    return served.recordings;
}

}  // namespace refhost
