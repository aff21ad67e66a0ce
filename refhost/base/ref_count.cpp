#include "hostapi/base/ref_count.h"

#include "refhost/base/CountRecord.h"
#include "refhost/base/CountTable.h"

int ref_count::lock()
{
    return static_cast<CountRecord*>(this)->take();
}

void ref_count::unLock()
{
    static_cast<CountRecord*>(this)->leave();
}

void* ref_count::getPointer()
{
    return static_cast<CountRecord*>(this)->object();
}

int ref_count::inc_reference() const
{
    return static_cast<const CountRecord*>(this)->addHolder();
}

int ref_count::dec_reference()
{
    CountRecord* const record = static_cast<CountRecord*>(this);
    return record->removeHolder() ? 1 : CountTable::instance().settle(record);
}
