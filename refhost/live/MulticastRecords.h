#pragma once

#include <map>
#include <string>

#include "hostapi/live/MulticastSessionParameter.h"
#include "refhost/base/Mutex.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The records of multicast sessions that LiveDispatcherMgr keeps. Threads: any; one lock of its own.
class MulticastRecords
{
public:
    /// The one collection of the process; made at the first call, never destroyed.
    static MulticastRecords& instance();

    bool has(const std::string& multicastSessionId) const;
    /// \param[out] out  one more handle when found, otherwise left as it was
    /// \returns true when found
    bool find(const std::string& multicastSessionId, SafePointer<MulticastSessionParameter>& out) const;
    /// Adds the record, or puts it in the place of the one of the same id.
    void store(const SafePointer<MulticastSessionParameter>& record);
    void erase(const std::string& multicastSessionId);

    /// Which multicast session an RTSP session is a member of.
    /// \returns empty when it is of none
    std::string sessionOf(const std::string& memberSessionId) const;

private:
    mutable Mutex mutex_;
    std::map<std::string, SafePointer<MulticastSessionParameter>> records_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
