#include "refhost/device/Device.h"

#include <mutex>
#include <utility>

namespace refhost
{
namespace
{

std::mutex mutex;
std::shared_ptr<StreamDirectory> current;
std::shared_ptr<RecordingIndex> currentRecordings;

}  // namespace

void Device::setStreams(std::shared_ptr<StreamDirectory> streams)
{
    const std::lock_guard<std::mutex> guard(mutex);
    current.swap(streams);
}

std::shared_ptr<StreamDirectory> Device::streams()
{
    const std::lock_guard<std::mutex> guard(mutex);
    return current;
}

void Device::setRecordings(std::shared_ptr<RecordingIndex> recordings)
{
    const std::lock_guard<std::mutex> guard(mutex);
    currentRecordings.swap(recordings);
}

std::shared_ptr<RecordingIndex> Device::recordings()
{
    const std::lock_guard<std::mutex> guard(mutex);
    return currentRecordings;
}

}  // namespace refhost
