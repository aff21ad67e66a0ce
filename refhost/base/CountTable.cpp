#include "refhost/base/CountTable.h"

CountTable& CountTable::instance()
{
    static CountTable* const table = new CountTable;
    return *table;
}

std::uint64_t CountTable::hashOf(const void* object)
{
    // The lowest bits of a heap address are always 0.
    return (static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object)) >> 4) *
           UINT64_C(0x9E3779B97F4A7C15);
}

CountTable::Shard& CountTable::shardOf(std::uint64_t hash)
{
    return shards_[static_cast<std::size_t>(hash >> (64 - shardBits))];
}

CountRecord* CountTable::retrieve(void* object)
{
    const std::uint64_t hash = hashOf(object);
    return shardOf(hash).retrieve(object, hash);
}

int CountTable::settle(CountRecord* last)
{
    const std::uint64_t hash = hashOf(last->object());
    return shardOf(hash).settle(last, hash);
}

void CountTable::giveBack(CountRecord* record)
{
    const std::uint64_t hash = hashOf(record->object());
    record->holders_ = 1;
    record->object_.store(nullptr, std::memory_order_relaxed);
    shardOf(hash).giveBack(record);
}

CountRecord* CountTable::Shard::retrieve(void* object, std::uint64_t hash)
{
    const refhost::MutexLock guard(mutex_);
    for (CountRecord* record = bucketOf(hash); record != nullptr; record = record->next_)
    {
        if (record->object() == object)
        {
            ++record->retrieved_;
            return record;
        }
    }
    growTable();
    CountRecord* record = takeFree();
    record->object_.store(object, std::memory_order_relaxed);
    insert(record, hash);
    ++mapped_;
    return record;
}

int CountTable::Shard::settle(CountRecord* last, std::uint64_t hash)
{
    const refhost::MutexLock guard(mutex_);
    last->holders_ += last->retrieved_ - 1;
    last->retrieved_ = 0;
    if (last->holders_ > 0)
    {
        return 1;
    }
    CountRecord** link = &bucketOf(hash);
    while (*link != last)
    {
        link = &(*link)->next_;
    }
    *link = last->next_;
    --mapped_;
    return 0;
}

void CountTable::Shard::giveBack(CountRecord* record)
{
    const refhost::MutexLock guard(mutex_);
    appendFree(record);
}

CountRecord*& CountTable::Shard::bucketOf(std::uint64_t hash)
{
    return buckets_[static_cast<std::size_t>(hash >> 16) & (buckets_.size() - 1)];
}

void CountTable::Shard::insert(CountRecord* record, std::uint64_t hash)
{
    CountRecord*& bucket = bucketOf(hash);
    record->next_ = bucket;
    bucket = record;
}

void CountTable::Shard::growTable()
{
    if (mapped_ < buckets_.size())
    {
        return;
    }
    std::vector<CountRecord*> old(buckets_.size() * 2, nullptr);
    old.swap(buckets_);
    for (CountRecord* record : old)
    {
        while (record != nullptr)
        {
            CountRecord* next = record->next_;
            insert(record, hashOf(record->object()));
            record = next;
        }
    }
}

// First in, first out: a record stays unused as long as possible, so that a stale handle finds it retired
// rather than reused by the next object, which often has the same address.
CountRecord* CountTable::Shard::takeFree()
{
    if (firstFree_ == nullptr)
    {
        addSlab();
    }
    CountRecord* record = firstFree_;
    firstFree_ = record->next_;
    return record;
}

void CountTable::Shard::appendFree(CountRecord* record)
{
    record->next_ = nullptr;
    (firstFree_ == nullptr ? firstFree_ : lastFree_->next_) = record;
    lastFree_ = record;
}

void CountTable::Shard::addSlab()
{
    slabs_.push_back(std::make_unique<std::array<Slot, recordsInSlab>>());
    for (Slot& slot : *slabs_.back())
    {
        appendFree(&slot.record);
    }
}
