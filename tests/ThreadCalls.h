#pragma once

#include <functional>
#include <utility>

#include "hostapi/threads/GThread.h"
#include "support/function.h"
#include "support/function_obj.h"

/// Callables for the host's threads, made of any function of a test.
class ThreadCalls
{
public:
    /// Invokes `target`.
    static function<int> of(std::function<int()> target)
    {
        return function<int>(new Call(std::move(target)));
    }

    /// The hook that does nothing.
    static function<int> nothing()
    {
        return function<int>(new function_obj<int, int (*)()>(&GThread::emptyFun));
    }

private:
    class Call : public function_obj_base<int>
    {
    public:
        explicit Call(std::function<int()> target) : target_(std::move(target)) {}

        int operator()() override
        {
            return target_();
        }

    private:
        std::function<int()> target_;
    };
};
