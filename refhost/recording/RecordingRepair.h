#pragma once

#include "refhost/recording/RecordingIndex.h"

namespace refhost
{

/// Makes an index and the files below its directory agree, after a crash or when somebody moved files. No
/// file is ever deleted.
///
/// Threads: one, while nobody records.
class RecordingRepair
{
public:
    struct Result
    {
        int closed = 0;    ///< segments whose end was not entered, or was lost: measured now
        int adopted = 0;   ///< files that the index did not know
        int dropped = 0;   ///< entries whose file is gone
        int setAside = 0;  ///< files in which nothing can be played, now named `*.damaged`
        int failed = 0;    ///< files that cannot be read now, and what the index could not be told

        bool hasAny() const
        {
            return closed + adopted + dropped + setAside + failed > 0;
        }
    };

    /// Only files that have the name of a segment are looked at; of those that nothing can be played of, only
    /// ones that the index knows are set aside.
    static Result run(RecordingIndex& index);
};

}  // namespace refhost
