#include "support/OVRuntimeError.h"

OVRuntimeError::OVRuntimeError(const std::string& message) : message_(message) {}

OVRuntimeError::~OVRuntimeError() noexcept = default;

const char* OVRuntimeError::what() const noexcept
{
    return message_.c_str();
}
