#pragma once
// Tested by tests/e2e/test_doctor.py.

#include <string>
#include <vector>

#include "refhost/config/ConfigReader.h"
#include "refhost/doctor/Finding.h"

namespace refhost
{

/// Looks for everything that can keep a server from working on this machine with a configuration.
/// Threads: one; not in a process that serves.
class Doctor
{
public:
    /// \param read  of the file, which may be invalid
    /// \param file  its name; empty: the embedded configuration
    Doctor(ConfigResult read, std::string file);

    /// Checks all. Takes seconds, at most some for each 16 sources.
    std::vector<Finding> examine();

private:
    std::vector<Finding> configurationFindings() const;

    const ConfigResult read_;
    const std::string file_;
};

}  // namespace refhost
