#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "refhost/base/Descriptor.h"

namespace refhost
{

/// The folder of all recordings, for as long as one server uses it.
///
/// The folder is made if it is missing and locked against other servers (`server.lock` in it). The object
/// knows the folder by device and inode: where its disk was unmounted, or the folder was moved, the same path
/// leads to something else, and nothing must be recorded there. Threads: any.
class RecordingFolder
{
public:
    /// \param path        without a slash at the end
    /// \param[out] error  why not, in plain words that name the folder
    /// \returns null with `error` set when the folder cannot be made or written to, or another server uses
    ///          it; `errno` tells when its disk is full
    static std::unique_ptr<RecordingFolder> open(const std::string& path, std::string& error);

    /// Whether a server uses the folder now. Takes no lock: may be asked while one starts.
    static bool isInUse(const std::string& path);

    /// Without slashes at the end, which would stand twice in the paths of segments; "/" stays.
    static std::string withoutSlash(std::string path);

    /// Makes a folder and those above it that are missing, for the server's user and group (0750).
    /// \param[out] error  why not, in plain words that name the folder; `errno` tells too
    /// \returns true also when it is there already
    static bool make(const std::string& path, std::string& error);

    RecordingFolder(const RecordingFolder&) = delete;
    RecordingFolder& operator=(const RecordingFolder&) = delete;
    /// Other servers may use the folder.
    ~RecordingFolder();

    const std::string& path() const
    {
        return path_;
    }

    /// Whether the path still leads to the folder that was opened.
    bool isInPlace() const;

    /// Whether the folder is on a disk of its own that is not mounted now: then its path leads to what lies
    /// below the mount point. False where the folder never was on a mounted disk, and where another disk is
    /// mounted.
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
