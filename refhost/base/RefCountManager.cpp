#include "hostapi/base/RefCountManager.h"

#include "refhost/base/CountTable.h"

RefCountManager* RefCountManager::getInstance()
{
    return &CountTable::instance();
}

ref_count* RefCountManager::retrieveRefCount(void* object, const char*)
{
    return static_cast<CountTable*>(this)->retrieve(object);
}

void RefCountManager::returnbackRefCount(ref_count* record, const char*)
{
    static_cast<CountTable*>(this)->giveBack(static_cast<CountRecord*>(record));
}
