#pragma once
// Tested by tests/refhost/service/PassedSockets_test.cpp, tests/refhost/service/ServiceManager_test.cpp.

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace refhost
{

/// Takes a variable out of the environment. \returns its value; empty without one
/// Requires: no other thread yet.
inline std::string takenVariable(const char* name)
{
    const char* const value = std::getenv(name);
    std::string taken = value == nullptr ? "" : value;
    ::unsetenv(name);
    return taken;
}

}  // namespace refhost
