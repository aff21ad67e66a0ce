#include "hostapi/base/RefCountManager.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

// Enough that a few threads which make and drop objects hardly ever meet.
constexpr std::size_t shardBits = 6;
constexpr std::size_t recordsInSlab = 16;
constexpr std::size_t firstBuckets = 16;
// Records of different objects are written by different threads: each has a cache line of its own.
constexpr std::size_t cacheLine = 64;

struct alignas(cacheLine) Slot
{
    ref_count record;
};

std::uint64_t hashOf(const void* object)
{
    // The lowest bits of a heap address are always 0.
    return (static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object)) >> 4) *
           UINT64_C(0x9E3779B97F4A7C15);
}

void pause()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    asm volatile("yield");
#endif
}

}  // namespace

// Two kinds of lock, always taken in this order: a record's own, then its shard's. retrieveRefCount() takes
// only the shard's and therefore never waits for a record, whose lock is held while the object's destructor
// runs and may stay locked for good. What it counts goes to `retrieved_`; the record's last holder settles
// the two numbers.
//
// An object is deleted only after its address has left the table. When the allocator hands the address out
// again before the old record was given back, the new object finds no record and gets a fresh one.
//
// A record waits in the free list while its former user may still hold its lock for a moment; its next user
// simply waits for that. `holders_` is therefore made ready for the next object by the one that gives the
// record back, who holds the lock, and not by the one that takes it from the list, who does not.
struct RefCountManager::Impl
{
    class alignas(cacheLine) Shard
    {
    public:
        ref_count* retrieve(void* object, std::uint64_t hash)
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            for (ref_count* record = bucketOf(hash); record != nullptr; record = record->next_)
            {
                if (record->getPointer() == object)
                {
                    ++record->retrieved_;
                    return record;
                }
            }
            growTable();
            ref_count* record = takeFree();
            record->pointer_.store(object, std::memory_order_relaxed);
            insert(record, hash);
            ++mapped_;
            return record;
        }

        int settle(ref_count* last, std::uint64_t hash)
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            last->holders_ += last->retrieved_ - 1;
            last->retrieved_ = 0;
            if (last->holders_ > 0)
            {
                return 1;
            }
            ref_count** link = &bucketOf(hash);
            while (*link != last)
            {
                link = &(*link)->next_;
            }
            *link = last->next_;
            --mapped_;
            return 0;
        }

        void giveBack(ref_count* record)
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            appendFree(record);
        }

    private:
        ref_count*& bucketOf(std::uint64_t hash)
        {
            return buckets_[static_cast<std::size_t>(hash >> 16) & (buckets_.size() - 1)];
        }

        void insert(ref_count* record, std::uint64_t hash)
        {
            ref_count*& bucket = bucketOf(hash);
            record->next_ = bucket;
            bucket = record;
        }

        void growTable()
        {
            if (mapped_ < buckets_.size())
            {
                return;
            }
            std::vector<ref_count*> old(buckets_.size() * 2, nullptr);
            old.swap(buckets_);
            for (ref_count* record : old)
            {
                while (record != nullptr)
                {
                    ref_count* following = record->next_;
                    insert(record, hashOf(record->getPointer()));
                    record = following;
                }
            }
        }

        // First in, first out: a record rests as long as possible, so that a stale handle finds it retired
        // rather than in the service of the next object, which often has the same address.
        ref_count* takeFree()
        {
            if (firstFree_ == nullptr)
            {
                addSlab();
            }
            ref_count* record = firstFree_;
            firstFree_ = record->next_;
            return record;
        }

        void appendFree(ref_count* record)
        {
            record->next_ = nullptr;
            (firstFree_ == nullptr ? firstFree_ : lastFree_->next_) = record;
            lastFree_ = record;
        }

        void addSlab()
        {
            slabs_.push_back(std::make_unique<std::array<Slot, recordsInSlab>>());
            for (Slot& slot : *slabs_.back())
            {
                slot.record.holders_ = 1;
                appendFree(&slot.record);
            }
        }

        std::mutex mutex_;
        std::vector<ref_count*> buckets_ = std::vector<ref_count*>(firstBuckets, nullptr);
        std::size_t mapped_ = 0;
        ref_count* firstFree_ = nullptr;
        ref_count* lastFree_ = nullptr;
        std::vector<std::unique_ptr<std::array<Slot, recordsInSlab>>> slabs_;
    };

    Shard& shardOf(std::uint64_t hash)
    {
        return shards_[static_cast<std::size_t>(hash >> (64 - shardBits))];
    }

    std::array<Shard, std::size_t{1} << shardBits> shards_;
};

RefCountManager::RefCountManager() : impl_(new Impl) {}

RefCountManager::~RefCountManager()
{
    delete impl_;
}

RefCountManager* RefCountManager::getInstance()
{
    static RefCountManager* const instance = new RefCountManager;
    return instance;
}

ref_count* RefCountManager::retrieveRefCount(void* object, const char*)
{
    const std::uint64_t hash = hashOf(object);
    return impl_->shardOf(hash).retrieve(object, hash);
}

void RefCountManager::returnbackRefCount(ref_count* record, const char*)
{
    const std::uint64_t hash = hashOf(record->getPointer());
    record->holders_ = 1;
    record->pointer_.store(nullptr, std::memory_order_relaxed);
    impl_->shardOf(hash).giveBack(record);
}

int ref_count::releaseLast()
{
    const std::uint64_t hash = hashOf(getPointer());
    return RefCountManager::getInstance()->impl_->shardOf(hash).settle(this, hash);
}

// No futex: unLock() would have to look for sleepers, an atomic exchange instead of a plain store, and every
// copy of a handle would pay for it. The lock is held for a few instructions, except while an object is
// destroyed, and by somebody who was interrupted; both are waited for asleep.
void ref_count::lockContended() const
{
    constexpr int longestSpin = 64;
    constexpr int yields = 32;
    constexpr std::chrono::microseconds longestSleep(1000);

    const auto taken = [this]
    {
        return locked_.load(std::memory_order_relaxed) == 0 &&
               locked_.exchange(1, std::memory_order_acquire) == 0;
    };

    for (int spin = 1; spin <= longestSpin; spin *= 2)
    {
        for (int i = 0; i < spin; ++i)
        {
            pause();
        }
        if (taken())
        {
            return;
        }
    }
    for (int i = 0; i < yields; ++i)
    {
        std::this_thread::yield();
        if (taken())
        {
            return;
        }
    }
    for (std::chrono::microseconds sleep(20); !taken(); sleep = std::min(sleep * 2, longestSleep))
    {
        std::this_thread::sleep_for(sleep);
    }
}
