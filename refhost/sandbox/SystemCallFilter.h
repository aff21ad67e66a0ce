#pragma once

#include <string>

namespace refhost
{

/// Refuses the process the system calls that a media server never needs and an intruder does (seccomp), with EPERM:
/// starting programs, tracing, mounting, changing users, loading modules, namespaces, rare socket families, … The
/// whole process is not ended for a call: libraries try some and go on without, and whoever could provoke one could
/// end the server. What calls a plug-in, a driver's library or a sound server's needs cannot be known; so it is a
/// list of what is refused.
class SystemCallFilter
{
public:
    /// Puts the filter in force, in every thread of the process. It is never taken back.
    /// Requires: no_new_privs, or CAP_SYS_ADMIN.
    /// \param[out] problem  why not, when false is returned; nothing is refused then
    static bool apply(std::string& problem);
};

}  // namespace refhost
