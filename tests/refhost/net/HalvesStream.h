#pragma once

#include <memory>
#include <utility>

#include "tests/refhost/net/ForwardingStream.h"

namespace refhost
{
namespace test
{

/// Two connections as one: sends on the first, receives on the second, as a tunnel through HTTP does.
class HalvesStream final : public ForwardingStream
{
public:
    /// \param output, input  detached
    HalvesStream(std::shared_ptr<ByteStream> output, std::shared_ptr<ByteStream> input)
        : ForwardingStream(std::move(output)), input_(std::move(input))
    {
        inner().watchReceive(false);
    }

    void attach(EventLoop& loop, Handler handler) override
    {
        ForwardingStream::attach(loop, handler);
        input_->attach(loop, std::move(handler));
    }
    void detach() override
    {
        input_->detach();
        ForwardingStream::detach();
    }
    void watchReceive(bool on) override
    {
        input_->watchReceive(on);
    }
    Result receive(char* bytes, std::size_t size) override
    {
        return input_->receive(bytes, size);
    }
    void close() override
    {
        input_->close();
        ForwardingStream::close();
    }

private:
    const std::shared_ptr<ByteStream> input_;
};

}  // namespace test
}  // namespace refhost
