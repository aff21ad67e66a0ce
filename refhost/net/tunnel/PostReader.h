#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "refhost/net/tunnel/Base64Decoder.h"

namespace refhost
{

/// Reads what comes on the POST connection of a tunnel behind the first request's head: base64 of any length.
///
/// Players announce a Content-Length and go on behind it; others send a POST for each request, on one
/// connection or on several. So behind the announced length "POST " starts another request, whose cookie must
/// be the same, and anything else continues the base64.
///
/// Threads: one at a time.
class PostReader
{
public:
    static constexpr std::size_t maxHead = 8192;  ///< bytes of a later request's head

    /// \param length  Content-Length of the first request; nothing: until the end of the connection
    PostReader(std::string cookie, std::optional<std::uint64_t> length);

    /// Appends what `bytes` carry to `out`, at most three bytes for four.
    /// \returns false when they are neither base64 nor a request of this tunnel; every later call fails
    bool read(std::string_view bytes, std::string& out);

    /// Whether everything announced has come.
    bool complete() const;
    /// The number of requests that became complete since the last call; each is owed a response.
    std::size_t takeCompleted();

private:
    enum class State
    {
        body,     ///< base64, `left_` bytes of it
        between,  ///< behind the announced length: another request, or more base64
        head,     ///< of another request
        failed
    };

    void start(std::optional<std::uint64_t> length);
    bool readBody(std::string_view& bytes, std::string& out);
    bool readBetween(std::string_view& bytes, std::string& out);
    bool readHead(std::string_view& bytes);

    const std::string cookie_;
    Base64Decoder decoder_;
    State state_ = State::body;
    std::optional<std::uint64_t> left_;  // nothing: no end announced
    std::string text_;                   // of a request so far
    std::size_t completed_ = 0;
};

}  // namespace refhost
