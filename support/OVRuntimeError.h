#pragma once

#include <exception>
#include <string>

#include "support/Export.h"

/// Misuse of a counted handle. The only exception that the library throws; the library never catches it.
class OV_EXPORT OVRuntimeError : public std::exception
{
public:
    /// \param message  returned by what(); copied
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
