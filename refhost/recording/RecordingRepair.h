#pragma once

#include <atomic>

#include "refhost/recording/RecordingIndex.h"
#include "refhost/recording/SegmentLedger.h"

namespace refhost
{

/// Makes an index consistent with the files below its directory, after a crash or when files were moved.
/// Never deletes a file.
///
/// Threads: one. Others may record at the same time: their segments are left alone.
class RecordingRepair
{
public:
    struct Result
    {
        int closed = 0;    ///< segments without an end, or that lost it: measured
        int adopted = 0;   ///< files that were not in the index
        int dropped = 0;   ///< entries whose file is gone
        int setAside = 0;  ///< files without anything playable, renamed to `*.damaged`
        int refused = 0;   ///< changes that the index did not accept: to be repeated
        int failed = 0;    ///< files that cannot be read or renamed now

        bool hasAny() const
        {
            return closed + adopted + dropped + setAside + refused + failed > 0;
        }
    };

    /// Considers only files named as segments. Of those without anything playable, only the index's own are
    /// set aside.
    /// \param ledger    of running recorders; null without any
    /// \param stopping  set to end the repair soon; null: never
    static Result run(RecordingIndex& index, const SegmentLedger* ledger = nullptr,
                      const std::atomic<bool>* stopping = nullptr);
};

}  // namespace refhost
