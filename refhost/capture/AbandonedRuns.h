#pragma once
// Tested by tests/refhost/capture/PipelineRunner_test.cpp.

#include <map>
#include <string>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// Counts, by stream, the source runs whose owner gave them up while a thread of theirs had not ended.
///
/// Threads: any.
class AbandonedRuns
{
public:
    /// The process's instance; never destroyed, because such threads may run until the end of the process.
    static AbandonedRuns& instance();

    /// \param title  as SourceRun::Setup::title
    /// \param by     1 when a run is abandoned, -1 when it ends
    void change(const std::string& title, int by);

    int of(const std::string& title) const;
    int all() const;

private:
    mutable Mutex mutex_;
    std::map<std::string, int> counts_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
