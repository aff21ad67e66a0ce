#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "hostapi/audio/IMediaPlayer.h"

namespace refhost
{
namespace test
{

/// The calls of an output, made on the worker's thread.
struct Played
{
    std::atomic<std::size_t> samples{0};
    std::atomic<int> result{0};
    std::atomic<bool> open{false};
};

class CountingPlayer : public IMediaPlayer
{
public:
    explicit CountingPlayer(std::shared_ptr<Played> played) : played_(std::move(played)) {}

    void setDeviceInfo(const DeviceInfoEx&) override {}
    void setEncoderType(int) override {}

    int open() override
    {
        played_->open = true;
        return 0;
    }

    int play(const std::uint8_t*, std::size_t bytes) override
    {
        played_->samples += played_->result == 0 ? bytes / sizeof(std::int16_t) : 0;
        return played_->result;
    }

    void close() override
    {
        played_->open = false;
    }

private:
    const std::shared_ptr<Played> played_;
};

}  // namespace test
}  // namespace refhost
