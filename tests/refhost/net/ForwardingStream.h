#pragma once

#include <memory>
#include <utility>

#include "refhost/net/ByteStream.h"

namespace refhost
{
namespace test
{

/// Forwards every operation to another stream; derived classes override some.
class ForwardingStream : public ByteStream
{
public:
    explicit ForwardingStream(std::shared_ptr<ByteStream> inner) : inner_(std::move(inner)) {}

    void attach(EventLoop& loop, Handler handler) override
    {
        inner_->attach(loop, std::move(handler));
    }
    void detach() override
    {
        inner_->detach();
    }
    void watchReceive(bool on) override
    {
        inner_->watchReceive(on);
    }
    void watchSend(bool on) override
    {
        inner_->watchSend(on);
    }
    Result receive(char* bytes, std::size_t size) override
    {
        return inner_->receive(bytes, size);
    }
    Result send(const std::string_view* parts, std::size_t count, bool more) override
    {
        return inner_->send(parts, count, more);
    }
    void endSending() override
    {
        inner_->endSending();
    }
    void close() override
    {
        inner_->close();
    }
    const SocketAddress& peer() const override
    {
        return inner_->peer();
    }
    const SocketAddress& local() const override
    {
        return inner_->local();
    }
    void setSendBuffer(std::size_t bytes) override
    {
        inner_->setSendBuffer(bytes);
    }
    std::optional<std::chrono::milliseconds> silence() const override
    {
        return inner_->silence();
    }

protected:
    ByteStream& inner()
    {
        return *inner_;
    }

private:
    const std::shared_ptr<ByteStream> inner_;
};

}  // namespace test
}  // namespace refhost
