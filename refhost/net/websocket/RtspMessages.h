#pragma once
// Tested by tests/refhost/net/websocket/RtspMessages_test.cpp.

#include <cstddef>
#include <string_view>

namespace refhost
{

/// Finds the boundaries in what an RTSP server sends: responses and interleaved frames (RFC 2326, sections 7
/// and 10.12). Threads: any; no state.
class RtspMessages
{
public:
    /// The size of the response or frame at the start of `bytes`; all of `bytes` when it goes on behind them,
    /// or they are something else.
    /// Requires: `bytes` is not empty.
    static std::size_t firstSize(std::string_view bytes);
};

}  // namespace refhost
