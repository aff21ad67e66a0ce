#pragma once
// Tested by tests/e2e/test_doctor.py.

#include <string>

namespace refhost
{

/// The process that has a port open, as far as this one may see it.
struct PortOwner
{
    std::string program{};  ///< name; empty: unknown
    int process = 0;

    bool known() const
    {
        return !program.empty();
    }
    /// "NAME (process 123)"; empty when unknown.
    std::string text() const;

    /// \param tcp  a TCP port that is listened on; otherwise a UDP port
    static PortOwner find(int port, bool tcp);
};

}  // namespace refhost
