#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "tests/refhost/fragments/OneCamera.h"

namespace refhost
{
namespace test
{

/// One camera, 1/0, that goes on frame by frame, slowly enough for those who read: 25 of its frames are a second.
class PacedCamera : public OneCamera
{
public:
    /// \returns false when that took too long
    bool giveUntil(const std::function<bool()>& done)
    {
        for (int i = 0; i < 20000 && !done(); ++i, ++frames_)
        {
            source->giveMedia(frames_ / 25.0, (frames_ + 1) / 25.0);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return done();
    }

private:
    int frames_ = 0;
};

}  // namespace test
}  // namespace refhost
