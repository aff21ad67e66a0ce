#pragma once
// Tested by tests/support/SafePointer_test.cpp.

#include <cstdio>
#include <string>
#include <typeinfo>

#include "hostapi/base/RefCountManager.h"
#include "hostapi/base/ref_count.h"
#include "support/Export.h"
#include "support/OVRuntimeError.h"

/// Common base of all counted handles, without data; its only exported member is the destructor. Holds the
/// type-independent code of handles once per library or program that uses them.
class OV_EXPORT BaseSafePointer
{
public:
    /// No data to initialise.
    OV_INTERNAL BaseSafePointer() = default;
    /// Nothing to copy.
    OV_INTERNAL BaseSafePointer(const BaseSafePointer&) = default;
    /// Nothing to copy.
    OV_INTERNAL BaseSafePointer& operator=(const BaseSafePointer&) = default;

    /// May throw: releasing a handle reports a count record that belongs to another object.
    virtual ~BaseSafePointer() noexcept(false);

protected:
    /// The name of `type` in reports: the compiler's, without the leading '*' that some compilers add.
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

    /// Adds one holder of `object` to its record, or reports the misuse.
    /// \param type  the handle's type, for the report
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

    /// Removes one holder of `object` from its record, which stays locked.
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

    /// Returns the record of a deleted object to the manager.
    OV_INTERNAL static void giveBack(ref_count* record, const std::type_info& type)
    {
        RefCountManager::getInstance()->returnbackRefCount(record, nameOf(type));
    }
};
