#pragma once

#include <exception>
#include <string>

#include "support/Export.h"

/// Misuse of a counted handle. The only exception of the library, which catches it nowhere.
class OV_EXPORT OVRuntimeError : public std::exception
{
public:
    /// \param message  what what() returns; copied
    explicit OVRuntimeError(const std::string& message);
    /// Copies the message.
    OVRuntimeError(const OVRuntimeError&) = default;
    /// Copies the message.
    OVRuntimeError& operator=(const OVRuntimeError&) = default;
    ~OVRuntimeError() noexcept override;

    /// The message; valid as long as this object.
    const char* what() const noexcept override;

private:
    std::string message_;
};
