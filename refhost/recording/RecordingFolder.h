#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "refhost/base/Descriptor.h"

namespace refhost
{

/// The folder of all recordings, locked by one server.
///
/// The folder is made if it is missing and locked against other servers by its `server.lock`. It is
/// identified by device and inode: when its disk is unmounted or the folder moved, its path leads elsewhere,
/// and nothing must be recorded there. Threads: any.
class RecordingFolder
{
public:
    /// \param path        without a slash at the end
    /// \param[out] error  why not, in plain words that name the folder
    /// \returns null with `error` and `errno` set when the folder cannot be made or written to, or another
    ///          server uses it
    static std::unique_ptr<RecordingFolder> open(const std::string& path, std::string& error);

    /// Whether a server uses the folder now. Takes no lock, so it does not disturb a server that starts.
    static bool isInUse(const std::string& path);

    /// Removes slashes at the end, which would be doubled in paths of segments; keeps "/".
    static std::string withoutSlash(std::string path);

    /// Makes a folder and its missing parents, for the server's user and group (0750).
    /// \param[out] error  why not, in plain words that name the folder; `errno` is set, too
    /// \returns true also when the folder exists
    static bool make(const std::string& path, std::string& error);

    RecordingFolder(const RecordingFolder&) = delete;
    RecordingFolder& operator=(const RecordingFolder&) = delete;
    /// Unlocks the folder.
    ~RecordingFolder();

    const std::string& path() const
    {
        return path_;
    }

    /// Whether the path still leads to the folder that was opened.
    bool isInPlace() const;

    /// Whether the folder's disk was unmounted, so that its path leads to the root's disk. False where the
    /// folder never was on a mounted disk, and where another disk is mounted.
    bool isUnmounted() const;

private:
    explicit RecordingFolder(std::string path) : path_(std::move(path)) {}
    bool lock(std::string& error);
    bool identify(std::string& error);

    const std::string path_;
    Descriptor lock_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    std::string mountPoint_;  ///< of the disk that the folder is on; empty where that is the root's
};

}  // namespace refhost
