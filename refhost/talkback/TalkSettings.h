#pragma once
// Tested by tests/refhost/talkback/TalkSession_test.cpp.

#include <chrono>
#include <cstddef>

#include "refhost/base/Times.h"
#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Who is audible when several clients talk at once.
enum class TalkPolicy
{
    first,   ///< the first sender, until it is silent for TalkSettings::silence
    newest,  ///< the sender that started to talk last
    mix,     ///< everybody
    refuse   ///< the first session; others are refused until it ends
};

/// The settings of talk-back. A plain value.
struct TalkSettings
{
    TalkPolicy policy = TalkPolicy::first;
    PcmFormat format;                 ///< of the output
    std::size_t maxTalkSenders = 16;  ///< sessions that may have talk-back set up at once
    /// A sender whose last packet is that long ago has stopped talking.
    Duration silence = std::chrono::milliseconds(500);
    /// How long a missing packet is waited for.
    Duration maxReorderWait = std::chrono::milliseconds(25);
    /// Audio that waited longer for the output is dropped.
    Duration maxOutputWait = std::chrono::milliseconds(100);
    /// From PLAY to the first receiver report.
    Duration firstReport = std::chrono::seconds(1);
    /// Between receiver reports.
    Duration reportInterval = std::chrono::seconds(5);
};

}  // namespace refhost
