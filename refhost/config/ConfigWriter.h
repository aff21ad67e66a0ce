#pragma once

#include <string>

#include "refhost/config/Config.h"

namespace refhost
{

/// Writes a configuration as a commented file that ConfigReader reads back to the same configuration, except
/// for what must not be shown: a user's password is only a comment, and credentials within a location
/// are masked (rtsp://***@host/). The reader refuses both, naming line and column, so that a dump is never
/// mistaken for the whole and no user ends up with a known password.
///
/// Threads: any.
class ConfigWriter
{
public:
    static std::string write(const ServerConfig& config);

    /// All keys with meaning, values and default as tables in Markdown, for the manual.
    static std::string manual();
};

}  // namespace refhost
