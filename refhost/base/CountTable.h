#pragma once
// Tested by tests/refhost/base/RefCountManager_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "hostapi/base/RefCountManager.h"
#include "refhost/base/CountRecord.h"
#include "refhost/base/Mutex.h"

/// The one RefCountManager of this host: count records by the addresses of their objects, in shards, so that
/// a few threads which make and drop objects hardly ever meet. Owns every record and never frees one.
///
/// Two kinds of lock, always taken in this order: a record's own, then its shard's. retrieve() takes only the
/// shard's and therefore never waits for a record, whose lock is held while the object's destructor runs and
/// may stay locked for good. What it counts goes to `retrieved_`; the record's last holder settles the two
/// numbers.
///
/// An object is deleted only after its address has left the table. When the allocator hands the address out
/// again before the old record was given back, the new object finds no record and gets a fresh one.
///
/// A record waits in the free list while its former user may still hold its lock for a moment; its next user
/// simply waits for that. `holders_` is therefore made ready for the next object by the one that gives the
/// record back, who holds the lock, and not by the one that takes it from the list, who does not.
class CountTable : public RefCountManager
{
public:
    /// Made at the first call; never destroyed.
    static CountTable& instance();

    /// As RefCountManager::retrieveRefCount().
    CountRecord* retrieve(void* object);

    /// Settles the last holder counted in the record against those that the table counted meanwhile; when
    /// none is left the address leaves the table. Requires: the record's lock is held. \returns as
    /// ref_count::dec_reference()
    int settle(CountRecord* last);

    /// As RefCountManager::returnbackRefCount().
    void giveBack(CountRecord* record);

private:
    static constexpr std::size_t shardBits = 6;
    static constexpr std::size_t recordsInSlab = 16;
    static constexpr std::size_t firstBuckets = 16;
    // Records of different objects are written by different threads: each has a cache line of its own.
    static constexpr std::size_t cacheLine = 64;

    struct alignas(cacheLine) Slot
    {
        CountRecord record;
    };

    class alignas(cacheLine) Shard
    {
    public:
        CountRecord* retrieve(void* object, std::uint64_t hash);
        int settle(CountRecord* last, std::uint64_t hash);
        void giveBack(CountRecord* record);

    private:
        CountRecord*& bucketOf(std::uint64_t hash) OV_REQUIRES(mutex_);
        void insert(CountRecord* record, std::uint64_t hash) OV_REQUIRES(mutex_);
        void growTable() OV_REQUIRES(mutex_);
        CountRecord* takeFree() OV_REQUIRES(mutex_);
        void appendFree(CountRecord* record) OV_REQUIRES(mutex_);
        void addSlab() OV_REQUIRES(mutex_);

        refhost::Mutex mutex_;
        std::vector<CountRecord*> buckets_ OV_GUARDED_BY(mutex_) = std::vector<CountRecord*>(firstBuckets,
                                                                                             nullptr);
        std::size_t mapped_ OV_GUARDED_BY(mutex_) = 0;
        CountRecord* firstFree_ OV_GUARDED_BY(mutex_) = nullptr;
        CountRecord* lastFree_ OV_GUARDED_BY(mutex_) = nullptr;
        std::vector<std::unique_ptr<std::array<Slot, recordsInSlab>>> slabs_ OV_GUARDED_BY(mutex_);
    };

    CountTable() = default;
    ~CountTable() = default;

    static std::uint64_t hashOf(const void* object);
    Shard& shardOf(std::uint64_t hash);

    std::array<Shard, std::size_t{1} << shardBits> shards_;
};
