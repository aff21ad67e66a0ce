#pragma once
// Tested by tests/refhost/rtp/payload/Packetizer_test.cpp.

#include <string>

#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// Sets the format parameters (a=fmtp) of media of `format` as a Packetizer sends them: those that the codec
/// table names, in its order.
/// \param[out] text  set on success, otherwise left as it was; empty for codecs without parameters
/// \returns false when the format lacks what a player needs
bool formatText(const MediaFormat& format, std::string& text);

}  // namespace refhost
