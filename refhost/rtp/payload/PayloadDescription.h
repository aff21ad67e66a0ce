#pragma once
// Tested by tests/refhost/rtp/payload/Depacketizer_test.cpp.

#include <map>
#include <string>

namespace refhost
{

/// Format parameters of a payload type (a=fmtp): names in lower case, values as they are written.
using FormatParameters = std::map<std::string, std::string>;

/// What a description says of one RTP payload type.
struct PayloadDescription
{
    std::string encodingName;  ///< of a=rtpmap, in letters of either case
    int clockRate = 0;         ///< Hz
    int channels = 1;          ///< of audio
    FormatParameters parameters;
};

}  // namespace refhost
