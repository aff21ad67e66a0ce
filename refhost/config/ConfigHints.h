#pragma once

#include <string>
#include <string_view>

namespace refhost
{

/// What people mean who write a configuration that cannot be read. Threads: any; no state.
class ConfigHints
{
public:
    /// What this program calls a key or section that other programs have under `name`, as the end of a
    /// sentence; empty: unknown.
    static std::string nameHere(std::string_view name);

    /// Why a line is no TOML, as a sentence; empty: unknown.
    /// \param text  the whole file
    /// \param line  from 1, at which the parser gave up
    static std::string forSyntax(std::string_view text, int line);

    /// What is wrong with a host in a URL "rtsp://…"; empty: nothing.
    static std::string forHostOf(std::string_view url);
};

}  // namespace refhost
