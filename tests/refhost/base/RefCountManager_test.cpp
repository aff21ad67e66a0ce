#include "hostapi/base/RefCountManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "refhost/base/CountRecord.h"
#include "support/SafePointer.h"

namespace
{

struct Object
{
    explicit Object(bool* deletedFlag = nullptr) : deleted(deletedFlag) {}

    virtual ~Object()
    {
        if (deleted != nullptr)
        {
            *deleted = true;
        }
    }

    bool* deleted;
};

RefCountManager& manager()
{
    return *RefCountManager::getInstance();
}

const CountRecord& inside(const ref_count* record)
{
    return static_cast<const CountRecord&>(*record);
}

/// Releases one hold as a handle does. \returns true when it was the last, and the record went back
bool release(ref_count* record)
{
    record->lock();
    const bool last = record->dec_reference() == 0;
    if (last)
    {
        manager().returnbackRefCount(record, "Object");
    }
    record->unLock();
    return last;
}

}  // namespace

TEST(RefCountManager, RetrievalCountsAHolderWithoutTheRecordsLock)
{
    int object = 0;
    ref_count* const record = manager().retrieveRefCount(&object, "int");
    ASSERT_EQ(0, record->lock());

    ASSERT_EQ(record, manager().retrieveRefCount(&object, "int"));
    EXPECT_EQ(1, inside(record).holders());
    EXPECT_EQ(1, inside(record).retrieved());

    record->unLock();
    EXPECT_FALSE(release(record));
    EXPECT_EQ(1, inside(record).holders());
    EXPECT_EQ(0, inside(record).retrieved());
    EXPECT_TRUE(release(record));
}

TEST(RefCountManager, LockOfAReturnedRecordFailsAndStaysFree)
{
    int object = 0;
    ref_count* const record = manager().retrieveRefCount(&object, "int");
    ASSERT_TRUE(release(record));

    EXPECT_NE(0, record->lock());
    EXPECT_NE(0, record->lock());
    EXPECT_EQ(nullptr, record->getPointer());
}

TEST(RefCountManager, RecordOfAnObjectThatIsBeingDeletedIsNotHandedOutAgain)
{
    int object = 0;
    ref_count* const old = manager().retrieveRefCount(&object, "int");
    old->lock();
    ASSERT_EQ(0, old->dec_reference());

    // The object is gone and its address reused before the old record is returned.
    ref_count* const fresh = manager().retrieveRefCount(&object, "int");
    ASSERT_NE(old, fresh);
    manager().returnbackRefCount(old, "int");
    old->unLock();

    EXPECT_EQ(fresh, manager().retrieveRefCount(&object, "int"));
    EXPECT_EQ(0, fresh->lock());
    EXPECT_EQ(&object, fresh->getPointer());
    fresh->unLock();
    EXPECT_FALSE(release(fresh));
    EXPECT_TRUE(release(fresh));
}

TEST(RefCountManager, RecycledRecordThatIsStillLockedMakesItsNewUserWait)
{
    int object = 0;
    ref_count* record = manager().retrieveRefCount(&object, "int");
    ref_count* const old = record;
    old->lock();
    ASSERT_EQ(0, old->dec_reference());
    manager().returnbackRefCount(old, "int");

    // Records are reused first in, first out: repeat until this one's turn.
    for (int iteration = 0; iteration < 1000 && (iteration == 0 || record != old); ++iteration)
    {
        record = manager().retrieveRefCount(&object, "int");
        if (record != old)
        {
            ASSERT_TRUE(release(record));
        }
    }
    ASSERT_EQ(old, record);

    auto user = std::async(std::launch::async,
                           [record]
                           {
                               const int result = record->lock();
                               record->unLock();
                               return result;
                           });
    EXPECT_EQ(std::future_status::timeout, user.wait_for(std::chrono::milliseconds(20)));
    old->unLock();
    EXPECT_EQ(0, user.get());
    EXPECT_TRUE(release(record));
}

TEST(RefCountManager, ReusedAddressDoesNotReviveAStaleRecordAtOnce)
{
    int object = 0;
    ref_count* const stale = manager().retrieveRefCount(&object, "int");
    ASSERT_TRUE(release(stale));

    ref_count* const fresh = manager().retrieveRefCount(&object, "int");
    ASSERT_NE(stale, fresh);
    EXPECT_NE(0, stale->lock());
    EXPECT_TRUE(release(fresh));
}

TEST(RefCountManager, TableGrowsAndKeepsEveryRecordFindable)
{
    constexpr int objects = 20000;
    std::vector<std::unique_ptr<Object>> all;
    std::vector<ref_count*> records;
    for (int i = 0; i < objects; ++i)
    {
        all.push_back(std::make_unique<Object>());
        records.push_back(manager().retrieveRefCount(all.back().get(), "Object"));
    }
    for (int i = 0; i < objects; ++i)
    {
        ASSERT_EQ(records[i], manager().retrieveRefCount(all[i].get(), "Object"));
        ASSERT_EQ(all[i].get(), records[i]->getPointer());
        ASSERT_FALSE(release(records[i]));
        ASSERT_TRUE(release(records[i]));
    }
}

TEST(RefCountManager, ReleaseThatWaitsForARecordContinuesOnceItIsFree)
{
    bool deleted = false;
    auto handle = std::make_unique<SafePointer<Object>>(new Object(&deleted));
    ref_count* const record = manager().retrieveRefCount(handle->operator->(), "Object");
    record->lock();

    std::thread releaser([&handle] { handle.reset(); });
    std::this_thread::yield();
    record->unLock();
    releaser.join();

    EXPECT_FALSE(deleted);
    record->lock();
    EXPECT_EQ(0, record->dec_reference());
    delete static_cast<Object*>(record->getPointer());
    manager().returnbackRefCount(record, "Object");
    record->unLock();
    EXPECT_TRUE(deleted);
}
