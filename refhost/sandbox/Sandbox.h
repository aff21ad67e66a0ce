#pragma once

#include <string>

#include "refhost/config/Config.h"
#include "refhost/sandbox/FileLimits.h"

namespace refhost
{

/// Takes from the process what serving does not need: new privileges, dangerous system calls, and files beside those
/// of the configuration and the system. Threads: one, before others start.
class Sandbox
{
public:
    /// Enters it as far as the system has it, and logs in one line what is in force, and as a warning what cannot be.
    /// \param configFile  empty: none
    static void enter(const ServerConfig& config, const std::string& configFile);

    /// What file limits a configuration needs.
    /// \param[out] problem  why they cannot be known, when false is returned
    static bool limitsFor(const ServerConfig& config, const std::string& configFile, FileLimits& limits,
                          std::string& problem);

    /// Why this build never enters it, such as a sanitizer; empty: it does.
    static std::string unavailable();
};

}  // namespace refhost
