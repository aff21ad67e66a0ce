#pragma once
// Tested by tests/refhost/rtsp/message/KeyMgmtHeader_test.cpp.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/rtp/srtp/MikeyMessage.h"

namespace refhost
{

/// MIKEY messages in RTSP and SDP (RFC 4567): the KeyMgmt header and the attribute "key-mgmt".
/// Threads: any; no state.
class KeyMgmtHeader
{
public:
    /// Reads the first message of the protocol "mikey", whatever URI it is for.
    /// \returns nothing when there is none, or it is not one that MikeyMessage takes
    static std::optional<MikeyMessage> parse(std::string_view value);

    /// Appends the value of the header.
    /// \param uri  of the track
    static void append(std::string& out, std::string_view uri, const std::vector<std::uint8_t>& message);

    /// Appends the value of the attribute.
    static void appendAttribute(std::string& out, const std::vector<std::uint8_t>& message);

    /// Reads the value of the attribute.
    static std::optional<MikeyMessage> parseAttribute(std::string_view value);
};

}  // namespace refhost
