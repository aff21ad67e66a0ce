#pragma once
// Tested by tests/refhost/talkback/TalkSession_test.cpp.

#include <cstddef>
#include <cstdint>

#include "refhost/talkback/outputs/PcmFormat.h"

namespace refhost
{

/// Who is heard when several clients talk at once.
enum class TalkPolicy
{
    first,   ///< who talks first, until nothing came of it for `silenceMs`
    newest,  ///< who started to talk last
    mix,     ///< everybody
    refuse   ///< who set talk-back up first; others are refused until that session ends
};

/// How talk-back works on this device. A plain value.
struct TalkSettings
{
    TalkPolicy policy = TalkPolicy::first;
    PcmFormat format;                      ///< what the output takes
    std::size_t maxTalkSenders = 16;       ///< sessions that may have talk-back set up at once
    std::int64_t silenceMs = 500;          ///< without a packet for so long a sender has stopped
    std::int64_t reorderMs = 25;           ///< how long a missing packet is waited for
    std::int64_t staleMs = 100;            ///< audio that waited longer for the output is not played any more
    std::int64_t firstReportMs = 1000;     ///< from PLAY to the first receiver report
    std::int64_t reportIntervalMs = 5000;  ///< between receiver reports
};

}  // namespace refhost
