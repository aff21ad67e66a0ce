#pragma once

#include <cstddef>
#include <cstring>
#include <utility>

/// Calls a virtual operation like a program that was built long ago: by its slot in the object's vtable and the arguments
/// of that time, whatever the headers say now. A destructor has the slots 0 (the object alone) and 1 (the object and its
/// memory). \tparam Signature  of the operation, without the object:
/// int(const std::string&)
template <class Signature>
class Slot;

template <class Result, class... Arguments>
class Slot<Result(Arguments...)>
{
public:
    Slot(void* object, std::size_t place) : object_(object)
    {
        const unsigned char* table = nullptr;
        std::memcpy(&table, object, sizeof table);
        std::memcpy(&operation_, table + place * sizeof operation_, sizeof operation_);
    }

    Result operator()(Arguments... arguments) const
    {
        return operation_(object_, std::forward<Arguments>(arguments)...);
    }

private:
    void* object_;
    Result (*operation_)(void* self, Arguments... arguments);
};
