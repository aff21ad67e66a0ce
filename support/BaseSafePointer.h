#pragma once

#include "support/Export.h"

/// Common base of every counted handle; it has no data and nothing but a destructor.
class OV_EXPORT BaseSafePointer
{
public:
    /// Nothing to make.
    BaseSafePointer() = default;
    /// Nothing to copy.
    BaseSafePointer(const BaseSafePointer&) = default;
    /// Nothing to copy.
    BaseSafePointer& operator=(const BaseSafePointer&) = default;

    /// May throw: releasing a handle reports a count record that belongs to another object.
    virtual ~BaseSafePointer() noexcept(false) {}
};
