#include "hostapi/base/RefCountManager.h"

#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include "hostapi/base/ref_count.h"
#include "tests/fakehost/RefCountInspector.h"

namespace
{

struct FakeRecord : ref_count
{
    void take()
    {
        while (locked.exchange(true, std::memory_order_acquire))
        {
            std::this_thread::yield();
        }
    }

    void leave()
    {
        locked.store(false, std::memory_order_release);
    }

    std::atomic<bool> locked{false};
    std::atomic<void*> object{nullptr};
    mutable int holders = 0;  // guarded by the record's lock
    int retrieved = 0;        // holders added by the manager; guarded by its mutex
    FakeRecord* next = nullptr;
};

FakeRecord* fake(ref_count* record)
{
    return static_cast<FakeRecord*>(record);
}

// Lock order: a record's own lock, then the table's mutex. Only an unused record (new, or from the free list,
// where its lock is held for moments only) is locked in the reverse order.
struct FakeTable : RefCountManager
{
    static FakeTable& instance()
    {
        static FakeTable* const table = new FakeTable;
        return *table;
    }

    // Settles the last counted holder against those that were retrieved meanwhile; as dec_reference().
    int settle(FakeRecord* last)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        last->holders += last->retrieved - 1;
        last->retrieved = 0;
        if (last->holders > 0)
        {
            return 1;
        }
        // From here on the address may belong to another object: the allocator may reuse it before the record
        // is returned.
        byObject.erase(last->object);
        return 0;
    }

    std::mutex mutex;
    std::unordered_map<const void*, FakeRecord*> byObject;
    std::deque<FakeRecord> records;
    FakeRecord* free = nullptr;
    bool returnNull = false;
    std::string retrievedType;
    std::string returnedType;
};

}  // namespace

RefCountManager* RefCountManager::getInstance()
{
    return &FakeTable::instance();
}

ref_count* RefCountManager::retrieveRefCount(void* object, const char* typeName)
{
    FakeTable& table = FakeTable::instance();
    const std::lock_guard<std::mutex> guard(table.mutex);
    table.retrievedType = typeName;
    if (table.returnNull)
    {
        table.returnNull = false;
        return nullptr;
    }
    FakeRecord*& record = table.byObject[object];
    if (record != nullptr)
    {
        ++record->retrieved;
        return record;
    }
    if (table.free == nullptr)
    {
        record = &table.records.emplace_back();
    }
    else
    {
        record = table.free;
        table.free = record->next;
    }
    record->take();
    record->next = nullptr;
    record->object = object;
    record->holders = 1;
    record->retrieved = 0;
    record->leave();
    return record;
}

void RefCountManager::returnbackRefCount(ref_count* record, const char* typeName)
{
    FakeTable& table = FakeTable::instance();
    const std::lock_guard<std::mutex> guard(table.mutex);
    table.returnedType = typeName;
    fake(record)->object = nullptr;
    fake(record)->next = table.free;
    table.free = fake(record);
}

int ref_count::lock()
{
    fake(this)->take();
    if (getPointer() == nullptr)
    {
        unLock();
        return -1;
    }
    return 0;
}

void ref_count::unLock()
{
    fake(this)->leave();
}

void* ref_count::getPointer()
{
    return fake(this)->object;
}

int ref_count::inc_reference() const
{
    const FakeRecord* const record = static_cast<const FakeRecord*>(this);
    if (record->holders <= 0)
    {
        return 0;
    }
    ++record->holders;
    return 1;
}

int ref_count::dec_reference()
{
    FakeRecord* const record = fake(this);
    if (record->holders > 1)
    {
        --record->holders;
        return 1;
    }
    return FakeTable::instance().settle(record);
}

ref_count* RefCountInspector::recordOf(const void* object)
{
    FakeTable& table = FakeTable::instance();
    const std::lock_guard<std::mutex> guard(table.mutex);
    const auto found = table.byObject.find(object);
    return found == table.byObject.end() ? nullptr : found->second;
}

int RefCountInspector::holders(const void* object)
{
    ref_count* const record = recordOf(object);
    if (record == nullptr || record->lock() != 0)
    {
        return 0;
    }
    FakeTable& table = FakeTable::instance();
    const std::lock_guard<std::mutex> guard(table.mutex);
    const int holders = fake(record)->holders + fake(record)->retrieved;
    record->unLock();
    return holders;
}

std::size_t RefCountInspector::recordsInUse()
{
    FakeTable& table = FakeTable::instance();
    const std::lock_guard<std::mutex> guard(table.mutex);
    return table.byObject.size();
}

void RefCountInspector::setPointer(ref_count* record, void* object)
{
    fake(record)->object = object;
}

void RefCountInspector::setHolders(ref_count* record, int holders)
{
    fake(record)->holders = holders;
}

bool RefCountInspector::isLocked(const ref_count* record)
{
    return static_cast<const FakeRecord*>(record)->locked;
}

void RefCountInspector::returnNullOnce()
{
    FakeTable& table = FakeTable::instance();
    const std::lock_guard<std::mutex> guard(table.mutex);
    table.returnNull = true;
}

const char* RefCountInspector::lastRetrievedType()
{
    return FakeTable::instance().retrievedType.c_str();
}

const char* RefCountInspector::lastReturnedType()
{
    return FakeTable::instance().returnedType.c_str();
}
