#pragma once

#include <memory>

#include "refhost/media/StreamSource.h"
#include "tests/refhost/recording/RecordedStreamFake.h"

namespace refhost
{
namespace test
{

/// One camera, 1/0. Threads: find() any; the rest the test's.
class OneCamera : public StreamDirectory
{
public:
    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override
    {
        return cameraId == 1 && streamId == 0 ? std::atomic_load(&source) : nullptr;
    }

    /// As a reload does. \param other  null: the camera is gone
    void replace(const std::shared_ptr<RecordedStreamFake>& other)
    {
        std::atomic_store(&source, other);
    }

    std::shared_ptr<RecordedStreamFake> source = std::make_shared<RecordedStreamFake>();
};

}  // namespace test
}  // namespace refhost
