#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "refhost/export/Mp4Export.h"

namespace refhost
{

/// Writes an export to a file, which appears whole or not at all.
///
/// It grows under a name of its own in the same folder, and gets its name when it is complete and on the disk.
/// An existing file is replaced then. Readable for the user and the group. Threads: one.
class ExportFile
{
public:
    /// Receives how many bytes were written, of how many; after each block.
    using Progress = std::function<void(std::uint64_t done, std::uint64_t size)>;

    /// \param stopping    set to end early; null: never
    /// \param[out] error  why not, in plain words that name the file
    /// \returns false with `error` set, and neither file left behind, when a file cannot be written or read; an
    ///          existing file of that name stays as it was
    static bool write(Mp4Export& source, const std::string& path, const Progress& progress,
                      const std::atomic<bool>* stopping, std::string& error);
};

}  // namespace refhost
