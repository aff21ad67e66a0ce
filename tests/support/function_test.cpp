#include "support/function.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "hostapi/threads/GThread.h"
#include "tests/fakehost/FakeHost.h"

namespace
{

int seven()
{
    return 7;
}

class Counter
{
public:
    virtual ~Counter() = default;
    virtual int next()
    {
        return ++count_;
    }
    int twice()
    {
        return 2 * next();
    }

private:
    int count_ = 0;
};

class NegativeCounter : public Counter
{
public:
    int next() override
    {
        return -Counter::next();
    }
};

class Watched : public function_obj_base<int>
{
public:
    explicit Watched(int& living) : living_(living)
    {
        ++living_;
    }
    ~Watched() noexcept(false) override
    {
        --living_;
    }
    int operator()() override
    {
        return 1;
    }

private:
    int& living_;
};

using BoundCounter = bind_funcobj0<int, Counter>;

}  // namespace

TEST(function, InvokesAFreeFunctionAndPassesItsResult)
{
    function<int> call(new function_obj<int, int (*)()>(&seven));
    EXPECT_EQ(7, call());
}

TEST(function, InvokesAMemberFunctionOnTheBoundObject)
{
    Counter counter;
    function<int> call(new function_obj<int, BoundCounter>(BoundCounter{&Counter::twice, &counter}));
    EXPECT_EQ(2, call());
    EXPECT_EQ(4, call());
}

TEST(function, DispatchesAVirtualMemberOnTheDynamicType)
{
    NegativeCounter counter;
    function<int> call(new function_obj<int, BoundCounter>(BoundCounter{&Counter::next, &counter}));
    EXPECT_EQ(-1, call());
}

TEST(function, CopiesShareOneCallableAndTheLastDeletesIt)
{
    int living = 0;
    {
        function<int> copy(new function_obj<int, int (*)()>(&seven));
        {
            function<int> original(new Watched(living));
            copy = original;
            EXPECT_EQ(1, living);
        }
        EXPECT_EQ(1, living);
        EXPECT_EQ(1, copy());
        function<int> another(copy);
        EXPECT_EQ(1, living);
    }
    EXPECT_EQ(0, living);
}

TEST(function, AroundNoCallableThrowsTheHandlesReport)
{
    testing::internal::CaptureStdout();
    std::string thrown;
    try
    {
        function<int> call(nullptr);
    }
    catch (const OVRuntimeError& error)
    {
        thrown = error.what();
    }
    const std::string line = "SafePointer Report:17function_obj_baseIiE Construct from NULL original pointer";
    EXPECT_EQ(line + "\n", testing::internal::GetCapturedStdout());
    EXPECT_EQ(line, thrown);
}

TEST(function, AroundTheEmptyHookDoesNothing)
{
    FakeHost::instance().clearCalls();
    function<int> call(new function_obj<int, int (*)()>(&GThread::emptyFun));
    EXPECT_EQ(0, call());
    EXPECT_TRUE(FakeHost::instance().calls().empty());
}

TEST(function, AllowsItsDestructorToThrow)
{
    EXPECT_FALSE(std::is_nothrow_destructible<function<int>>::value);
    EXPECT_FALSE(std::is_nothrow_destructible<function_obj_base<int>>::value);
    EXPECT_TRUE((std::is_base_of<function_obj_base<int>, function_obj<int, BoundCounter>>::value));
}
