#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "refhost/net/ByteStream.h"

namespace refhost
{

/// A stream without a socket, whose input is all there; it accepts everything. Keeps no handler.
class InputStream : public ByteStream
{
public:
    /// \param chunk    max bytes that are received at once
    /// \param address  of both ends
    InputStream(std::string input, std::size_t chunk, const SocketAddress& address = {})
        : input_(std::move(input)), chunk_(chunk), address_(address)
    {
    }

    void attach(EventLoop&, Handler) override {}
    void detach() override {}
    void watchReceive(bool) override {}
    void watchSend(bool) override {}
    Result receive(char* bytes, std::size_t size) override
    {
        if (closed)
        {
            return {Status::failed};
        }
        const std::size_t count = std::min({size, chunk_, input_.size() - at_});
        input_.copy(bytes, count, at_);
        at_ += count;
        return count != 0 ? Result{Status::done, count} : Result{Status::ended};
    }
    Result send(const std::string_view* parts, std::size_t count, bool) override
    {
        if (closed)
        {
            return {Status::failed};
        }
        const std::size_t before = sent.size();
        for (std::size_t i = 0; i < count; ++i)
        {
            sent.append(parts[i]);
        }
        return {Status::done, sent.size() - before};
    }
    void endSending() override {}
    void close() override
    {
        closed = true;
    }
    const SocketAddress& peer() const override
    {
        return address_;
    }
    const SocketAddress& local() const override
    {
        return address_;
    }
    void setSendBuffer(std::size_t) override {}
    std::optional<std::chrono::milliseconds> silence() const override
    {
        return std::nullopt;
    }

    std::string sent;
    bool closed = false;

private:
    const std::string input_;
    const std::size_t chunk_;
    const SocketAddress address_;
    std::size_t at_ = 0;
};

}  // namespace refhost
