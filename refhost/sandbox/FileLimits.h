#pragma once

#include <string>
#include <vector>

namespace refhost
{

/// Limits which files this process can use from now on (Landlock): folders that it may read, and folders in which it
/// may also write, make, rename and remove. Everything else is refused with EACCES, and so is starting programs.
/// What is open stays open.
///
/// A limit is never taken back. It holds for the calling thread and those that it starts later.
/// Threads: one.
class FileLimits
{
public:
    /// Permits reading below `folder`. One that does not exist is ignored.
    void read(const std::string& folder);
    /// Permits everything but starting programs below `folder`. One that does not exist is ignored.
    void write(const std::string& folder);
    /// As write(), and control of the devices in it.
    void devices(const std::string& folder);

    /// Puts the limits in force. Requires: no_new_privs.
    /// \param[out] problem  why not, when false is returned: the kernel has no Landlock
    bool apply(std::string& problem) const;

    /// The folders that are permitted, in the order of the calls.
    const std::vector<std::string>& readable() const
    {
        return readable_;
    }
    const std::vector<std::string>& writable() const
    {
        return writable_;
    }

private:
    std::vector<std::string> readable_;
    std::vector<std::string> writable_;
    std::vector<std::string> devices_;
};

}  // namespace refhost
