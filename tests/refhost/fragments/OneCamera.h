#pragma once

#include <memory>

#include "refhost/media/StreamSource.h"
#include "tests/refhost/recording/RecordedStreamFake.h"

namespace refhost
{
namespace test
{

/// One camera, 1/0.
class OneCamera : public StreamDirectory
{
public:
    std::shared_ptr<StreamSource> find(int cameraId, int streamId) override
    {
        return cameraId == 1 && streamId == 0 ? source : nullptr;
    }

    std::shared_ptr<RecordedStreamFake> source = std::make_shared<RecordedStreamFake>();
};

}  // namespace test
}  // namespace refhost
