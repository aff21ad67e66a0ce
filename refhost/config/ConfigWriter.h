#pragma once

#include <string>

#include "refhost/config/Config.h"

namespace refhost
{

/// Writes a configuration as a commented file that ConfigReader reads back to the same configuration, except
/// for secrets: a user's password is only a comment, and credentials in a location are masked
/// (rtsp://***@host/). The reader refuses both, with line and column, so that a dump is not mistaken for a
/// complete configuration and no user gets a known password.
///
/// Threads: any.
class ConfigWriter
{
public:
    static std::string write(const ServerConfig& config);

    /// All keys with meaning, values and default as Markdown tables for the manual.
    static std::string manual();
};

}  // namespace refhost
