#include "refhost/media/Device.h"

#include <utility>

#include "refhost/base/ChangeSignal.h"
#include "refhost/base/Mutex.h"

namespace refhost
{
namespace
{

struct Served
{
    Mutex mutex;
    std::shared_ptr<StreamDirectory> streams OV_GUARDED_BY(mutex);
    std::shared_ptr<RecordingIndex> recordings OV_GUARDED_BY(mutex);
    bool recordingsExpected OV_GUARDED_BY(mutex) = false;

    static Served& instance()
    {
        // Never destroyed: connections may be served until the end of the process.
        static auto* const served = new Served;
        return *served;
    }
};

}  // namespace

void Device::setStreams(std::shared_ptr<StreamDirectory> streams)
{
    Served& served = Served::instance();
    const MutexLock guard(served.mutex);
    served.streams.swap(streams);
}

std::shared_ptr<StreamDirectory> Device::streams()
{
    Served& served = Served::instance();
    const MutexLock guard(served.mutex);
    return served.streams;
}

void Device::setRecordings(std::shared_ptr<RecordingIndex> recordings)
{
    Served& served = Served::instance();
    {
        const MutexLock guard(served.mutex);
        served.recordings.swap(recordings);
        served.recordingsExpected = false;
    }
    ChangeSignal::instance().announce();
}

void Device::expectRecordings()
{
    Served& served = Served::instance();
    const MutexLock guard(served.mutex);
    served.recordingsExpected = true;
}

bool Device::recordingsExpected()
{
    Served& served = Served::instance();
    const MutexLock guard(served.mutex);
    return served.recordingsExpected;
}

std::shared_ptr<RecordingIndex> Device::recordings()
{
    Served& served = Served::instance();
    const MutexLock guard(served.mutex);
    return served.recordings;
}

}  // namespace refhost
