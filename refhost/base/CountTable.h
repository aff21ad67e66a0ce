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

/// The RefCountManager of this host: count records by the addresses of their objects. The table is sharded
/// so that threads which create and drop objects rarely contend. Owns every record and never frees one.
///
/// Lock order: a record's lock, then its shard's. retrieve() takes only the shard's lock and so never waits
/// for a record, whose lock is held while the object's destructor runs and may stay held forever. Holders
/// added by retrieve() are counted in `retrieved_`; the record's last holder settles the two counts.
///
/// An object is deleted only after its address has left the table. If the allocator reuses the address before
/// the old record was given back, the new object finds no record and gets a fresh one.
///
/// The previous user of a record in the free list may still hold its lock for a moment; the next user waits
/// for it. Therefore whoever gives the record back, and holds the lock, resets `holders_`, not whoever takes
/// it from the list.
class CountTable : public RefCountManager
{
public:
    /// Created at the first call; never destroyed.
    static CountTable& instance();

    /// As RefCountManager::retrieveRefCount().
    CountRecord* retrieve(void* object);

    /// Removes the last holder counted in the record and adds those that the table counted meanwhile; when
    /// none is left, the address leaves the table. Requires: the record's lock is held.
    /// \returns as ref_count::dec_reference()
    int settle(CountRecord* last);

    /// As RefCountManager::returnbackRefCount().
    void giveBack(CountRecord* record);

private:
    static constexpr std::size_t shardBits = 6;
    static constexpr std::size_t recordsInSlab = 16;
    static constexpr std::size_t firstBuckets = 16;
    // Different threads write the records of different objects: no false sharing.
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
