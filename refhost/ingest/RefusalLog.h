#pragma once
// Tested by tests/refhost/ingest/RefusalLog_test.cpp.

#include <cstdint>
#include <string>
#include <vector>

#include "refhost/base/Times.h"

namespace refhost
{

/// Logs that packets of a camera's track are refused: one line when it starts, with the reason, one for each further
/// reason, and one with the number of packets when it is over. Threads: one at a time.
class RefusalLog
{
public:
    /// So long without a refused packet it is over. A camera that alternates does not flood the log.
    static constexpr Duration calm = std::chrono::seconds(60);
    /// Further reasons are counted, not logged.
    static constexpr std::size_t maxReasons = 8;

    /// \param track  what starts each line: the stream's name in the log and the track
    explicit RefusalLog(std::string track);
    /// Logs the number of packets if it is not over.
    ~RefusalLog();
    RefusalLog(const RefusalLog&) = delete;
    RefusalLog& operator=(const RefusalLog&) = delete;

    /// A packet was refused. \param why  a constant text without anything that the camera sent
    void onRefused(const char* why, MonotonicTime arrival);

    /// A packet was taken.
    void onTaken(MonotonicTime arrival)
    {
        if (refused_ > 0 && arrival - last_ >= calm)
        {
            end();
        }
    }

private:
    void end();

    const std::string track_;
    std::uint64_t refused_ = 0;         ///< packets since it started
    std::vector<const char*> reasons_;  ///< that were logged since then
    MonotonicTime last_;                ///< arrival of the last refused packet
};

}  // namespace refhost
