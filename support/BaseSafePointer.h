#pragma once
// Tested by tests/support/SafePointer_test.cpp.

#include <cstdio>
#include <string>
#include <typeinfo>

#include "hostapi/base/RefCountManager.h"
#include "hostapi/base/ref_count.h"
#include "support/Export.h"
#include "support/OVRuntimeError.h"

/// Common base of every counted handle; it has no data and nothing but a destructor. What handles do whatever
/// they point at stands here once, inside of each library or program that uses them.
class OV_EXPORT BaseSafePointer
{
public:
    /// Nothing to make.
    OV_INTERNAL BaseSafePointer() = default;
    /// Nothing to copy.
    OV_INTERNAL BaseSafePointer(const BaseSafePointer&) = default;
    /// Nothing to copy.
    OV_INTERNAL BaseSafePointer& operator=(const BaseSafePointer&) = default;

    /// May throw: releasing a handle reports a count record that belongs to another object.
    virtual ~BaseSafePointer() noexcept(false);

protected:
    /// What a handle to `type` calls it: the compiler's name, without the '*' that some begin it with.
    OV_INTERNAL static const char* nameOf(const std::type_info& type)
    {
        const char* const name = type.name();
        return *name == '*' ? name + 1 : name;
    }

    /// Prints "SafePointer Report:", the type's name and the message on standard output and throws the same
    /// text.
    [[noreturn]] OV_INTERNAL static void reportMisuse(const std::type_info& type, const char* message)
    {
        const std::string line = std::string("SafePointer Report:") + nameOf(type) + " " + message;
        std::printf("%s\n", line.c_str());
        throw OVRuntimeError(line);
    }

    /// Counts one more holder of `object` in its record, or reports why that cannot be.
    /// \param type  what the handle points at, for the report
    OV_INTERNAL static void addHolder(const void* object, ref_count* record, const std::type_info& type)
    {
        if (record == nullptr)
        {
            reportMisuse(type, "Already destructed 1");
        }
        if (record->lock() != 0)
        {
            reportMisuse(type, "Already destructed 2");
        }
        if (record->getPointer() != object)
        {
            throw OVRuntimeError("not valid pointer in inc_reference ");
        }
        if (record->inc_reference() == 0)
        {
            record->unLock();
            reportMisuse(type, "Already destructed 3");
        }
        record->unLock();
    }

    /// Counts one holder of `object` less in its record, which stays locked.
    /// \returns true when it was the last: the caller then deletes the object
    OV_INTERNAL static bool removeHolder(const void* object, ref_count* record)
    {
        record->lock();
        if (record->getPointer() != object)
        {
            throw OVRuntimeError("not valid pointer in dec_reference");
        }
        return record->dec_reference() == 0;
    }

    /// Gives the record of an object that was deleted back to the manager.
    OV_INTERNAL static void giveBack(ref_count* record, const std::type_info& type)
    {
        RefCountManager::getInstance()->returnbackRefCount(record, nameOf(type));
    }
};
