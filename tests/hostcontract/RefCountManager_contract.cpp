#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "hostapi/base/RefCountManager.h"
#include "hostapi/base/ref_count.h"
#include "support/SafePointer.h"

namespace
{

const char* const typeName = "3Any";

ref_count* retrieve(void* object)
{
    return RefCountManager::getInstance()->retrieveRefCount(object, typeName);
}

/// Releases one hold as a handle does. \returns true when it was the last one
bool release(ref_count* record)
{
    EXPECT_EQ(0, record->lock());
    const bool last = record->dec_reference() == 0;
    if (last)
    {
        RefCountManager::getInstance()->returnbackRefCount(record, typeName);
    }
    record->unLock();
    return last;
}

/// Counts the living objects of its kind.
class Living
{
public:
    explicit Living(std::atomic<int>& count) : count_(count)
    {
        ++count_;
    }
    virtual ~Living() noexcept(false)
    {
        --count_;
    }
    Living(const Living&) = delete;
    Living& operator=(const Living&) = delete;

private:
    std::atomic<int>& count_;
};

/// Runs `body(i)` on `count` threads that start together.
template <class Body>
void onThreads(int count, const Body& body)
{
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
    {
        threads.emplace_back(
            [&, i]
            {
                ++ready;
                while (ready < count)
                {
                    std::this_thread::yield();
                }
                body(i);
            });
    }
    for (std::thread& one : threads)
    {
        one.join();
    }
}

}  // namespace

TEST(RefCountContract, ManagerIsOne)
{
    RefCountManager* const manager = RefCountManager::getInstance();
    ASSERT_NE(nullptr, manager);
    onThreads(4, [&](int) { EXPECT_EQ(manager, RefCountManager::getInstance()); });
}

TEST(RefCountContract, OneRecordPerAddressWithEveryRetrievalCounted)
{
    int object = 0;
    int other = 0;
    ref_count* const record = retrieve(&object);
    ref_count* const otherRecord = retrieve(&other);
    ASSERT_NE(nullptr, record);
    EXPECT_NE(record, otherRecord);
    EXPECT_EQ(record, retrieve(&object));
    EXPECT_EQ(record, retrieve(&object));

    EXPECT_FALSE(release(record));
    EXPECT_FALSE(release(record));
    EXPECT_TRUE(release(record));
    EXPECT_TRUE(release(otherRecord));
}

TEST(RefCountContract, RecordReturnsItsObjectWhileItIsHeld)
{
    int object = 0;
    ref_count* const record = retrieve(&object);
    ASSERT_EQ(0, record->lock());
    EXPECT_EQ(&object, record->getPointer());
    record->unLock();
    EXPECT_TRUE(release(record));
}

TEST(RefCountContract, EachIncrementAsksForOneMoreRelease)
{
    int object = 0;
    ref_count* const record = retrieve(&object);
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_EQ(0, record->lock());
        EXPECT_NE(0, record->inc_reference());
        record->unLock();
    }
    retrieve(&object);
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_FALSE(release(record)) << i;
    }
    EXPECT_TRUE(release(record));
}

TEST(RefCountContract, IncrementIsRefusedOnceTheLastHolderHasLeft)
{
    int object = 0;
    ref_count* const record = retrieve(&object);
    ASSERT_EQ(0, record->lock());
    ASSERT_EQ(0, record->dec_reference());
    EXPECT_EQ(0, record->inc_reference());
    RefCountManager::getInstance()->returnbackRefCount(record, typeName);
    record->unLock();
}

TEST(RefCountContract, ReturnedRecordRefusesItsLockAndStaysFree)
{
    int object = 0;
    ref_count* const record = retrieve(&object);
    ASSERT_TRUE(release(record));
    EXPECT_NE(0, record->lock());
    // Would not return if the refusal had kept the lock.
    EXPECT_NE(0, record->lock());
}

TEST(RefCountContract, RetrievalDoesNotWaitForALockedRecord)
{
    int object = 0;
    ref_count* const record = retrieve(&object);
    ASSERT_EQ(0, record->lock());
    auto other = std::async(std::launch::async, [&] { return retrieve(&object); });
    ASSERT_EQ(std::future_status::ready, other.wait_for(std::chrono::seconds(10)));
    EXPECT_EQ(record, other.get());
    record->unLock();
    EXPECT_FALSE(release(record));
    EXPECT_TRUE(release(record));
}

TEST(RefCountContract, AddressReusedBeforeTheOldRecordIsBackGetsAFreshCount)
{
    int object = 0;
    ref_count* const old = retrieve(&object);
    ASSERT_EQ(0, old->lock());
    ASSERT_EQ(0, old->dec_reference());

    ref_count* const fresh = retrieve(&object);
    EXPECT_NE(old, fresh);
    RefCountManager::getInstance()->returnbackRefCount(old, typeName);
    old->unLock();

    EXPECT_EQ(fresh, retrieve(&object));
    EXPECT_FALSE(release(fresh));
    EXPECT_TRUE(release(fresh));
}

TEST(RefCountContract, CountOfAReusedAddressStartsAtOne)
{
    int object = 0;
    for (int iteration = 0; iteration < 100; ++iteration)
    {
        ref_count* const record = retrieve(&object);
        ASSERT_EQ(0, record->lock());
        record->inc_reference();
        record->unLock();
        ASSERT_FALSE(release(record));
        ASSERT_TRUE(release(record)) << iteration;
    }
}

TEST(RefCountContract, ManyObjectsKeepTheirRecordsApart)
{
    constexpr int count = 10000;
    std::vector<int> objects(count);
    std::vector<ref_count*> records;
    for (int& object : objects)
    {
        records.push_back(retrieve(&object));
    }
    for (int i = 0; i < count; ++i)
    {
        ASSERT_EQ(records[i], retrieve(&objects[i]));
        ASSERT_FALSE(release(records[i]));
        ASSERT_TRUE(release(records[i]));
    }
}

TEST(HandleContract, ObjectIsDestroyedBeforeItsRecordIsGivenBack)
{
    // Its destructor finds that no new handle can be created: the record is locked and has no holder.
    struct Object
    {
        explicit Object(int& r) : refused(r) {}
        virtual ~Object()
        {
            refused = record->inc_reference() == 0 && record->getPointer() == this ? 1 : 0;
        }
        int& refused;
        ref_count* record = nullptr;
    };
    int refused = -1;
    {
        const SafePointer<Object> handle(new Object(refused));
        Object* const object = handle.operator->();
        object->record = retrieve(object);
        EXPECT_FALSE(release(object->record));
        EXPECT_EQ(-1, refused);
    }
    EXPECT_EQ(1, refused);
}

TEST(HandleContract, DestructorMayReleaseAndMakeOtherHandles)
{
    std::atomic<int> living{0};
    struct Node : Living
    {
        using Living::Living;
        ~Node() noexcept(false) override
        {
            std::atomic<int> own{0};
            const SafePointer<Living> made(new Living(own));
            const SafePointer<Living> copy(made);
            EXPECT_EQ(1, own);
        }
        SafePointer<Node> next;
    };
    {
        SafePointer<Node> first(new Node(living));
        for (int i = 1; i < 1000; ++i)
        {
            SafePointer<Node> before(new Node(living));
            before->next = first;
            first = before;
        }
        EXPECT_EQ(1000, living);
    }
    EXPECT_EQ(0, living);
}

TEST(HandleContract, ObjectSharedByManyThreadsDiesOnceWithTheLastHandle)
{
    std::atomic<int> living{0};
    auto shared = std::make_unique<SafePointer<Living>>(new Living(living));
    std::vector<SafePointer<Living>> own(4, *shared);
    onThreads(4,
              [&](int i)
              {
                  SafePointer<Living> mine(own[static_cast<std::size_t>(i)]);
                  for (int n = 0; n < 5000; ++n)
                  {
                      const SafePointer<Living> copy(mine);
                      mine = copy;
                  }
              });
    own.clear();
    EXPECT_EQ(1, living);
    shared.reset();
    EXPECT_EQ(0, living);
}

TEST(HandleContract, HandlesMadeFromTheRawPointerCountWithThoseThatAreReleasedMeanwhile)
{
    std::atomic<int> living{0};
    Living* const raw = new Living(living);
    auto keeper = std::make_unique<SafePointer<Living>>(raw);
    onThreads(4,
              [&](int)
              {
                  for (int n = 0; n < 5000; ++n)
                  {
                      const SafePointer<Living> made(raw);
                      const SafePointer<Living> copy(made);
                  }
              });
    EXPECT_EQ(1, living);
    keeper.reset();
    EXPECT_EQ(0, living);
}

TEST(HandleContract, LastHandlesReleasedTogetherDeleteOnce)
{
    for (int iteration = 0; iteration < 500; ++iteration)
    {
        std::atomic<int> living{0};
        std::array<std::unique_ptr<SafePointer<Living>>, 3> handles;
        handles[0] = std::make_unique<SafePointer<Living>>(new Living(living));
        handles[1] = std::make_unique<SafePointer<Living>>(*handles[0]);
        handles[2] = std::make_unique<SafePointer<Living>>(*handles[0]);
        onThreads(3, [&](int i) { handles[static_cast<std::size_t>(i)].reset(); });
        ASSERT_EQ(0, living);
    }
}

namespace
{

/// Memory that the next object reuses at once, mostly on another thread, before the record of the previous one
/// is returned.
class EagerMemory
{
public:
    static constexpr std::size_t size = 64;

    void* take()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (free_.empty())
        {
            all_.push_back(std::make_unique<Block>());
            return all_.back()->bytes;
        }
        void* const block = free_.back();
        free_.pop_back();
        return block;
    }

    void giveBack(void* block)
    {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            free_.push_back(block);
        }
        std::this_thread::yield();
    }

    std::size_t blocks() const
    {
        return all_.size();
    }

private:
    struct Block
    {
        alignas(std::max_align_t) unsigned char bytes[size];
    };

    std::mutex mutex_;
    std::vector<void*> free_;
    std::vector<std::unique_ptr<Block>> all_;
};

EagerMemory& eagerMemory()
{
    static EagerMemory memory;
    return memory;
}

class Reborn
{
public:
    explicit Reborn(std::atomic<int>& count) : living_(count) {}
    virtual ~Reborn() = default;

    static void* operator new(std::size_t size)
    {
        EXPECT_LE(size, EagerMemory::size);
        return eagerMemory().take();
    }
    static void operator delete(void* block)
    {
        eagerMemory().giveBack(block);
    }

    int value = 0;

private:
    Living living_;
};

}  // namespace

TEST(HandleContract, AddressHandedOutAgainWhileItsOldRecordGoesBackIsANewObject)
{
    constexpr int threads = 4;
    constexpr int iterations = 5000;
    std::atomic<int> living{0};
    std::atomic<int> wrong{0};
    onThreads(threads,
              [&](int i)
              {
                  for (int n = 0; n < iterations; ++n)
                  {
                      const int value = i * iterations + n;
                      SafePointer<Reborn> first(new Reborn(living));
                      first->value = value;
                      const SafePointer<Reborn> second(first.operator->());
                      {
                          const SafePointer<Reborn> third(second);
                          first = third;
                      }
                      // With a count inherited from the former object the object would be gone by now.
                      wrong += second->value == value ? 0 : 1;
                  }
              });
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(0, living);
    EXPECT_LT(eagerMemory().blocks(), 100u);
}
