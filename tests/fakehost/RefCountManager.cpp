#include "hostapi/base/RefCountManager.h"

#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include "hostapi/base/ref_count.h"
#include "tests/fakehost/RefCountInspector.h"

// Lock order: a record's own lock, then the table's mutex. Only a record in no use (fresh, or from the free
// list, where nobody keeps the lock for longer than a look) is locked the other way round.
struct RefCountManager::Impl
{
    std::mutex mutex;
    std::unordered_map<const void*, ref_count*> byObject;
    std::deque<ref_count> records;
    ref_count* free = nullptr;
    bool returnNull = false;
    std::string retrievedType;
    std::string returnedType;
};

RefCountManager::RefCountManager() : impl_(new Impl) {}

RefCountManager::~RefCountManager()
{
    delete impl_;
}

RefCountManager* RefCountManager::getInstance()
{
    static RefCountManager* const manager = new RefCountManager;
    return manager;
}

ref_count* RefCountManager::retrieveRefCount(void* object, const char* typeName)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->retrievedType = typeName;
    if (impl_->returnNull)
    {
        impl_->returnNull = false;
        return nullptr;
    }
    ref_count*& record = impl_->byObject[object];
    if (record != nullptr)
    {
        ++record->retrieved_;
        return record;
    }
    if (impl_->free == nullptr)
    {
        record = &impl_->records.emplace_back();
    }
    else
    {
        record = impl_->free;
        impl_->free = record->next_;
    }
    while (record->locked_.exchange(1, std::memory_order_acquire) != 0)
    {
        std::this_thread::yield();
    }
    record->next_ = nullptr;
    record->pointer_ = object;
    record->holders_ = 1;
    record->retrieved_ = 0;
    record->unLock();
    return record;
}

void RefCountManager::returnbackRefCount(ref_count* record, const char* typeName)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->returnedType = typeName;
    record->pointer_ = nullptr;
    record->next_ = impl_->free;
    impl_->free = record;
}

void ref_count::lockContended() const
{
    while (locked_.exchange(1, std::memory_order_acquire) != 0)
    {
        std::this_thread::yield();
    }
}

int ref_count::releaseLast()
{
    RefCountManager::Impl& table = *RefCountManager::getInstance()->impl_;
    const std::lock_guard<std::mutex> lock(table.mutex);
    holders_ += retrieved_ - 1;
    retrieved_ = 0;
    if (holders_ > 0)
    {
        return 1;
    }
    // From here on the address may be another object's: the allocator gives it away before the record is
    // back.
    table.byObject.erase(pointer_);
    return 0;
}

ref_count* RefCountInspector::recordOf(const void* object)
{
    RefCountManager::Impl& table = *RefCountManager::getInstance()->impl_;
    const std::lock_guard<std::mutex> lock(table.mutex);
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
    RefCountManager::Impl& table = *RefCountManager::getInstance()->impl_;
    const std::lock_guard<std::mutex> lock(table.mutex);
    const int holders = record->holders_ + record->retrieved_;
    record->unLock();
    return holders;
}

std::size_t RefCountInspector::recordsInUse()
{
    RefCountManager::Impl& table = *RefCountManager::getInstance()->impl_;
    const std::lock_guard<std::mutex> lock(table.mutex);
    return table.byObject.size();
}

void RefCountInspector::setPointer(ref_count* record, void* object)
{
    record->pointer_ = object;
}

void RefCountInspector::setHolders(ref_count* record, int holders)
{
    record->holders_ = holders;
}

bool RefCountInspector::isLocked(const ref_count* record)
{
    return record->locked_.load() != 0;
}

void RefCountInspector::returnNullOnce()
{
    RefCountManager::Impl& table = *RefCountManager::getInstance()->impl_;
    const std::lock_guard<std::mutex> lock(table.mutex);
    table.returnNull = true;
}

const char* RefCountInspector::lastRetrievedType()
{
    return RefCountManager::getInstance()->impl_->retrievedType.c_str();
}

const char* RefCountInspector::lastReturnedType()
{
    return RefCountManager::getInstance()->impl_->returnedType.c_str();
}
