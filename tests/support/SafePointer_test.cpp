#include "support/SafePointer.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <type_traits>

#include "tests/fakehost/FakeHost.h"
#include "tests/fakehost/RefCountInspector.h"
#include "tests/support/Probe.h"

namespace
{

// Output and exception of a misuse.
struct Misuse
{
    std::string printed;
    std::string thrown;
};

template <class Action>
Misuse misuseOf(Action action)
{
    Misuse misuse;
    testing::internal::CaptureStdout();
    try
    {
        action();
        misuse.thrown = "(nothing thrown)";
    }
    catch (const OVRuntimeError& error)
    {
        misuse.thrown = error.what();
    }
    misuse.printed = testing::internal::GetCapturedStdout();
    return misuse;
}

template <class Action>
void expectReport(const std::string& line, Action action)
{
    const Misuse misuse = misuseOf(action);
    EXPECT_EQ(line + "\n", misuse.printed);
    EXPECT_EQ(line, misuse.thrown);
}

template <class Action>
void expectUnprinted(const std::string& message, Action action)
{
    const Misuse misuse = misuseOf(action);
    EXPECT_EQ("", misuse.printed);
    EXPECT_EQ(message, misuse.thrown);
}

// A handle whose destructor never runs, for states that no handle could be released from.
class UnreleasedHandle
{
public:
    explicit UnreleasedHandle(Probe* object) : handle_(new (storage_) SafePointer<Probe>(object)) {}
    SafePointer<Probe>& get()
    {
        return *handle_;
    }

private:
    alignas(SafePointer<Probe>) unsigned char storage_[sizeof(SafePointer<Probe>)];
    SafePointer<Probe>* handle_;
};

// A record that was made to belong to another object; restored and released at the end.
class ForeignRecord
{
public:
    explicit ForeignRecord(Probe* object) : object_(object), record_(RefCountInspector::recordOf(object))
    {
        RefCountInspector::setPointer(record_, &other_);
    }
    ~ForeignRecord()
    {
        mend();
    }
    bool isLocked() const
    {
        return RefCountInspector::isLocked(record_);
    }
    void mend()
    {
        record_->unLock();
        RefCountInspector::setPointer(record_, object_);
    }

private:
    Probe* object_;
    ref_count* record_;
    int other_ = 0;
};

// The last hold of an object whose handle is gone without releasing it.
void releaseAbandoned(Probe* object)
{
    RefCountInspector::setHolders(RefCountInspector::recordOf(object), 0);
    SafePointer<Probe> last(object);
}

}  // namespace

TEST(SafePointer, DestroyingAnEmptyHandleDoesNothing)
{
    const std::size_t before = FakeHost::instance().recordsInUse();
    {
        SafePointer<Probe> empty;
        EXPECT_TRUE(empty.isEmpty());
    }
    EXPECT_EQ(before, FakeHost::instance().recordsInUse());
}

TEST(SafePointer, DeletesTheObjectWithTheLastHandle)
{
    {
        SafePointer<Probe> first(new Probe);
        {
            SafePointer<Probe> second(first);
            EXPECT_EQ(1, Probe::living());
        }
        EXPECT_EQ(1, Probe::living());
        EXPECT_EQ(1u, FakeHost::instance().recordsInUse());
    }
    EXPECT_EQ(0, Probe::living());
    EXPECT_EQ(0u, FakeHost::instance().recordsInUse());
}

TEST(SafePointer, TwoHandlesMadeFromOneRawPointerShareOneCount)
{
    Probe* const object = new Probe;
    {
        SafePointer<Probe> first(object);
        {
            SafePointer<Probe> second(object);
            EXPECT_EQ(2, RefCountInspector::holders(object));
        }
        EXPECT_EQ(1, Probe::living());
        EXPECT_EQ(1, RefCountInspector::holders(object));
    }
    EXPECT_EQ(0, Probe::living());
}

TEST(SafePointer, DeletesThroughTheVirtualDestructorOfTheBase)
{
    {
        SafePointer<Probe> base(new DerivedProbe);
        EXPECT_EQ(2, base->number());
    }
    EXPECT_EQ(0, Probe::living());
}

TEST(SafePointer, ConvertsToTheBaseAndSharesTheCount)
{
    SafePointer<DerivedProbe> derived(new DerivedProbe);
    const SafePointer<Probe> base(derived);
    EXPECT_EQ(2, RefCountInspector::holders(derived.operator->()));
    EXPECT_EQ(2, base->number());
}

TEST(SafePointer, NamesItsTypeToTheCountManager)
{
    {
        SafePointer<DerivedProbe> derived(new DerivedProbe);
        EXPECT_STREQ("12DerivedProbe", RefCountInspector::lastRetrievedType());
    }
    EXPECT_STREQ("12DerivedProbe", RefCountInspector::lastReturnedType());
}

TEST(SafePointer, NullRawPointerThrowsAndPrintsFirst)
{
    expectReport("SafePointer Report:5Probe Construct from NULL original pointer",
                 [] { SafePointer<Probe> handle(static_cast<Probe*>(nullptr)); });
}

TEST(SafePointer, CopyOfEmptyHandleThrowsAndPrintsFirst)
{
    const SafePointer<Probe> empty;
    expectReport("SafePointer Report:5Probe Construct from NULL <T>pointer",
                 [&] { SafePointer<Probe> copy(empty); });
}

TEST(SafePointer, ConvertingCopyOfEmptyHandleThrowsAndPrintsFirst)
{
    const SafePointer<DerivedProbe> empty;
    expectReport("SafePointer Report:5Probe Construct from NULL <U>pointer",
                 [&] { SafePointer<Probe> copy(empty); });
}

TEST(SafePointer, CopyOfHandleWithoutRecordThrowsAndPrintsFirst)
{
    Probe object;
    RefCountInspector::returnNullOnce();
    UnreleasedHandle recordless(&object);
    expectReport("SafePointer Report:5Probe Already destructed 1",
                 [&] { SafePointer<Probe> copy(recordless.get()); });
}

TEST(SafePointer, AssignmentOfHandleWithoutRecordThrowsAfterReleasingTheTarget)
{
    Probe object;
    RefCountInspector::returnNullOnce();
    UnreleasedHandle recordless(&object);
    SafePointer<Probe> target(new Probe);
    expectReport("SafePointer Report:5Probe Already destructed 1", [&] { target = recordless.get(); });
    EXPECT_EQ(1, Probe::living());
}

TEST(SafePointer, CopyWhoseRecordRefusesTheLockThrowsAndPrintsFirst)
{
    UnreleasedHandle stale(new Probe);
    SafePointer<Probe> other(stale.get());
    // Releases its own hold, then that of the stale handle.
    other.dec_reference();
    other.dec_reference();
    EXPECT_EQ(0, Probe::living());
    expectReport("SafePointer Report:5Probe Already destructed 2",
                 [&] { SafePointer<Probe> copy(stale.get()); });
}

TEST(SafePointer, AssignmentWhoseRecordRefusesTheLockThrowsAfterReleasingTheTarget)
{
    Probe* const object = new Probe;
    UnreleasedHandle stale(object);
    RefCountInspector::setPointer(RefCountInspector::recordOf(object), nullptr);
    SafePointer<Probe> target(new Probe);
    expectReport("SafePointer Report:5Probe Already destructed 2", [&] { target = stale.get(); });
    EXPECT_EQ(1, Probe::living());
    RefCountInspector::setPointer(RefCountInspector::recordOf(object), object);
    releaseAbandoned(object);
}

TEST(SafePointer, CopyOfAnObjectThatIsBeingDestroyedUnlocksThenThrowsAndPrints)
{
    Probe* const object = new Probe;
    SafePointer<Probe> source(object);
    ref_count* const record = RefCountInspector::recordOf(object);
    RefCountInspector::setHolders(record, 0);
    expectReport("SafePointer Report:5Probe Already destructed 3", [&] { SafePointer<Probe> copy(source); });
    EXPECT_FALSE(RefCountInspector::isLocked(record));
    RefCountInspector::setHolders(record, 1);
}

TEST(SafePointer, AssignmentOfAnObjectThatIsBeingDestroyedUnlocksThenThrowsAndPrints)
{
    Probe* const object = new Probe;
    SafePointer<Probe> source(object);
    ref_count* const record = RefCountInspector::recordOf(object);
    RefCountInspector::setHolders(record, 0);
    SafePointer<Probe> target(new Probe);
    expectReport("SafePointer Report:5Probe Already destructed 3", [&] { target = source; });
    EXPECT_FALSE(RefCountInspector::isLocked(record));
    EXPECT_EQ(1, Probe::living());
    RefCountInspector::setHolders(record, 1);
}

TEST(SafePointer, CopyWhoseRecordIsAnotherObjectsThrowsUnprintedAndLeavesTheRecordLocked)
{
    Probe* const object = new Probe;
    SafePointer<Probe> source(object);
    ForeignRecord foreign(object);
    expectUnprinted("not valid pointer in inc_reference ", [&] { SafePointer<Probe> copy(source); });
    EXPECT_TRUE(foreign.isLocked());
    foreign.mend();
}

TEST(SafePointer, AssignmentWhoseRecordIsAnotherObjectsThrowsUnprintedAndLeavesTheRecordLocked)
{
    Probe* const object = new Probe;
    SafePointer<Probe> source(object);
    ForeignRecord foreign(object);
    SafePointer<Probe> target;
    expectUnprinted("not valid pointer in inc_reference ", [&] { target = source; });
    EXPECT_TRUE(foreign.isLocked());
    foreign.mend();
}

TEST(SafePointer, ReleaseThroughAnotherObjectsRecordThrowsOutOfTheDestructor)
{
    Probe* const object = new Probe;
    {
        UnreleasedHandle source(object);
        ForeignRecord foreign(object);
        expectUnprinted("not valid pointer in dec_reference", [&] { source.get().~SafePointer<Probe>(); });
        EXPECT_TRUE(foreign.isLocked());
    }
    EXPECT_EQ(1, Probe::living()) << "a failure frees nothing";
    releaseAbandoned(object);
    EXPECT_EQ(0, Probe::living());
}

TEST(SafePointer, AssignmentFromAnEmptyHandleThrowsAndLeavesTheTargetUntouched)
{
    Probe* const object = new Probe;
    SafePointer<Probe> target(object);
    const SafePointer<Probe> empty;
    expectReport("SafePointer Report:5Probe Assigned NULL <T>pointer", [&] { target = empty; });
    EXPECT_EQ(object, target.operator->());
    EXPECT_EQ(1, RefCountInspector::holders(object));
}

TEST(SafePointer, AssignmentIntoAnEmptyHandleTakesTheSourcesHold)
{
    Probe* const object = new Probe;
    SafePointer<Probe> source(object);
    SafePointer<Probe> target;
    target = source;
    EXPECT_EQ(object, target.operator->());
    EXPECT_EQ(2, RefCountInspector::holders(object));
}

TEST(SafePointer, AssignmentReleasesWhatTheTargetHeld)
{
    SafePointer<Probe> source(new DerivedProbe);
    SafePointer<Probe> target(new Probe);
    target = source;
    EXPECT_EQ(1, Probe::living());
    EXPECT_EQ(2, target->number());
}

TEST(SafePointer, AssignmentReturnsTheTarget)
{
    SafePointer<Probe> source(new Probe);
    SafePointer<Probe> target;
    EXPECT_EQ(&target, &(target = source));
}

TEST(SafePointer, AssignmentReleasesTheTargetBeforeItValidatesTheSource)
{
    Probe* const object = new Probe;
    SafePointer<Probe> source(object);
    SafePointer<Probe> target(new Probe);
    ForeignRecord foreign(object);
    expectUnprinted("not valid pointer in inc_reference ", [&] { target = source; });
    EXPECT_EQ(1, Probe::living()) << "what the target held is gone although the assignment failed";
    foreign.mend();
}

TEST(SafePointer, AssignmentBetweenHandlesToOneObjectKeepsIt)
{
    Probe* const object = new Probe;
    SafePointer<Probe> source(object);
    SafePointer<Probe> target(source);
    target = source;
    EXPECT_EQ(2, RefCountInspector::holders(object));
    EXPECT_EQ(1, Probe::living());
}

TEST(SafePointer, SelfAssignmentOfAHoldingHandleChangesNothing)
{
    Probe* const object = new Probe;
    SafePointer<Probe> handle(object);
    const SafePointer<Probe>& same = handle;
    handle = same;
    EXPECT_EQ(1, RefCountInspector::holders(object));
}

TEST(SafePointer, SelfAssignmentOfAnEmptyHandleChangesNothing)
{
    SafePointer<Probe> handle;
    const SafePointer<Probe>& same = handle;
    EXPECT_EQ("", misuseOf([&] { handle = same; }).printed);
    EXPECT_TRUE(handle.isEmpty());
}

TEST(SafePointer, UseOfAnEmptyHandleThrowsAndPrintsFirst)
{
    const SafePointer<Probe> empty;
    expectReport("SafePointer Report:5Probe Use NULL pointer ->", [&] { empty->number(); });
}

TEST(SafePointer, UseOfASpentHandleThrowsAndPrintsFirst)
{
    SafePointer<Probe> handle(new Probe);
    handle.dec_reference();
    EXPECT_EQ(0, Probe::living());
    EXPECT_TRUE(handle.isEmpty());
    expectReport("SafePointer Report:5Probe Use NULL pointer ->", [&] { handle->number(); });
}

TEST(SafePointer, ReleasingASpentHandleAgainDoesNothing)
{
    SafePointer<Probe> handle(new Probe);
    handle.dec_reference();
    EXPECT_EQ("(nothing thrown)", misuseOf([&] { handle.dec_reference(); }).thrown);
}

TEST(SafePointer, UnlocksTheRecordAfterItWasGivenBack)
{
    Probe* const object = new Probe;
    ref_count* record = nullptr;
    {
        SafePointer<Probe> handle(object);
        record = RefCountInspector::recordOf(object);
    }
    EXPECT_FALSE(RefCountInspector::isLocked(record));
    EXPECT_NE(0, record->lock()) << "the record belongs to nobody now";
}

TEST(SafePointer, HoldsTheRecordsLockWhileTheObjectIsDeleted)
{
    class Watching : public Probe
    {
    public:
        explicit Watching(bool& locked) : locked_(locked) {}
        ~Watching() noexcept(false) override
        {
            locked_ = RefCountInspector::isLocked(record);
        }
        ref_count* record = nullptr;

    private:
        bool& locked_;
    };
    bool locked = false;
    {
        Watching* const object = new Watching(locked);
        SafePointer<Probe> handle(object);
        object->record = RefCountInspector::recordOf(object);
    }
    EXPECT_TRUE(locked);
}

TEST(SafePointer, DropsOneLeadingStarOfATypeName)
{
    // A type local to this file: compilers that compare type names by address mark such names with a star.
    struct Local
    {
        virtual ~Local() noexcept(false) = default;
    };
    const SafePointer<Local> empty;
    const Misuse misuse = misuseOf([&] { SafePointer<Local> copy(empty); });
    EXPECT_EQ(std::string::npos, misuse.thrown.find('*'));
    EXPECT_EQ(0u, misuse.thrown.find("SafePointer Report:"));
    const char* const name = typeid(Local).name();
    EXPECT_NE(std::string::npos, misuse.thrown.find(*name == '*' ? name + 1 : name));
}

TEST(SafePointer, AllowsItsDestructorToThrow)
{
    EXPECT_FALSE(std::is_nothrow_destructible<SafePointer<Probe>>::value);
    EXPECT_FALSE(std::is_nothrow_destructible<BaseSafePointer>::value);
}
