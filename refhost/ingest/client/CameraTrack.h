#pragma once
// Tested by tests/refhost/ingest/client/RtspClient_test.cpp.

#include <map>
#include <optional>
#include <string>

#include "refhost/media/Codec.h"
#include "refhost/rtp/payload/PayloadDescription.h"

namespace refhost
{

/// One track that a camera describes (RFC 4566; RFC 2326, appendix C).
struct CameraTrack
{
    std::optional<MediaKind> kind;  ///< nothing for what is neither, such as metadata
    std::string encodingName;       ///< as the camera writes it, or as RFC 3551 names the static payload type
    int payloadType = 0;            ///< 0 to 127: the first that the camera lists
    int clockRate = 0;              ///< Hz; at least 1
    int channels = 1;               ///< at least 1
    /// Format parameters (a=fmtp) of the payload type: names in lower case, values as they are written.
    std::map<std::string, std::string> formatParameters;
    std::string control;  ///< absolute URL for SETUP, without credentials
    /// The camera takes media on this track and sends none, such as for talk-back.
    bool backChannel = false;

    /// What a depacketizer has to know of it.
    PayloadDescription payload() const;
};

}  // namespace refhost
