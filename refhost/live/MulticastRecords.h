#pragma once

#include <map>
#include <string>

#include "hostapi/live/MulticastSessionParameter.h"
#include "refhost/base/Mutex.h"
#include "support/SafePointer.h"

namespace refhost
{

/// The records of multicast sessions behind LiveDispatcherMgr. Threads: any; one lock of its own.
class MulticastRecords
{
public:
    /// The process's records; made at the first call, never destroyed.
    static MulticastRecords& instance();

    bool has(const std::string& multicastSessionId) const;
    /// \param[out] out  one more handle when found, otherwise left as it was
    /// \returns true when found
    bool find(const std::string& multicastSessionId, SafePointer<MulticastSessionParameter>& out) const;
    /// Adds the record; replaces the one with the same id.
    void store(const SafePointer<MulticastSessionParameter>& record);
    void erase(const std::string& multicastSessionId);

    /// The multicast session that an RTSP session is a member of. \returns empty when there is none
    std::string sessionOf(const std::string& memberSessionId) const;

private:
    mutable Mutex mutex_;
    std::map<std::string, SafePointer<MulticastSessionParameter>> records_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
