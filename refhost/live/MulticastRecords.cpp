#include "refhost/live/MulticastRecords.h"

namespace refhost
{

MulticastRecords& MulticastRecords::instance()
{
    static MulticastRecords* const records = new MulticastRecords;
    return *records;
}

bool MulticastRecords::has(const std::string& multicastSessionId) const
{
    const MutexLock guard(mutex_);
    return records_.count(multicastSessionId) != 0;
}

bool MulticastRecords::find(const std::string& multicastSessionId,
                            SafePointer<MulticastSessionParameter>& out) const
{
    const MutexLock guard(mutex_);
    const auto found = records_.find(multicastSessionId);
    if (found == records_.end())
    {
        return false;
    }
    out = found->second;
    return true;
}

void MulticastRecords::store(const SafePointer<MulticastSessionParameter>& record)
{
    const std::string id = record->getMulticastSessionId();
    const MutexLock guard(mutex_);
    const auto [place, fresh] = records_.emplace(id, record);
    if (!fresh)
    {
        place->second = record;
    }
}

void MulticastRecords::erase(const std::string& multicastSessionId)
{
    const MutexLock guard(mutex_);
    records_.erase(multicastSessionId);
}

std::string MulticastRecords::sessionOf(const std::string& memberSessionId) const
{
    const MutexLock guard(mutex_);
    for (const auto& [id, record] : records_)
    {
        if (record->findMemberSession(memberSessionId))
        {
            return id;
        }
    }
    return {};
}

}  // namespace refhost
