#pragma once

#include <atomic>

#include "refhost/recording/RecordingIndex.h"
#include "refhost/recording/SegmentLedger.h"

namespace refhost
{

/// Makes an index and the files below its directory agree, after a crash or when somebody moved files. No
/// file is ever deleted.
///
/// Threads: one. Others may record meanwhile: their segments are left alone.
class RecordingRepair
{
public:
    struct Result
    {
        int closed = 0;    ///< segments whose end was not entered, or was lost: measured now
        int adopted = 0;   ///< files that the index did not know
        int dropped = 0;   ///< entries whose file is gone
        int setAside = 0;  ///< files in which nothing can be played, now named `*.damaged`
        int refused = 0;   ///< what the index could not be told: to be done again
        int failed = 0;    ///< files that cannot be read or renamed now

        bool hasAny() const
        {
            return closed + adopted + dropped + setAside + refused + failed > 0;
        }
    };

    /// Only files that have the name of a segment are looked at; of those that nothing can be played of, only
    /// ones that the index knows are set aside.
    /// \param ledger    of those who record; null where nobody does
    /// \param stopping  ends the repair soon when it becomes true; null: never
    static Result run(RecordingIndex& index, const SegmentLedger* ledger = nullptr,
                      const std::atomic<bool>* stopping = nullptr);
};

}  // namespace refhost
