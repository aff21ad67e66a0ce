#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/http/HttpRequest.h"

namespace refhost
{

/// Reads one request after the other from a client's bytes, and bounds them.
/// Threads: one at a time.
class HttpRequestReader
{
public:
    struct Limits
    {
        std::size_t headerBytes;
        std::size_t bodyBytes;
    };

    enum class State
    {
        partial,   ///< more bytes are needed
        complete,  ///< take() has a request
        failed     ///< status() says why; nothing more can be read
    };

    explicit HttpRequestReader(const Limits& limits);
    ~HttpRequestReader();
    HttpRequestReader(const HttpRequestReader&) = delete;
    HttpRequestReader& operator=(const HttpRequestReader&) = delete;

    /// Takes a client's bytes, in order. What it does not consume is to come again with more bytes behind it.
    /// \param[out] used  bytes that were consumed
    State read(std::string_view bytes, std::size_t& used);

    /// The complete request, without what is known of its connection; the next read() starts another one.
    /// Requires: read() returned `complete`.
    HttpRequest take();

    /// The status that refuses a failed request: 400, 413, 431 or 501.
    int status() const;
    /// Whether the client waits for a word before it sends its body; true once for each request.
    bool takeExpectation();
    /// Whether a request has started, other than by bytes that were not consumed.
    bool started() const;

private:
    struct Impl;

    State fail(int status);
    void reset();

    const Limits limits_;
    std::unique_ptr<Impl> impl_;
    int status_ = 0;
    bool expectationTaken_ = false;
};

}  // namespace refhost
