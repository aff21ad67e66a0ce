#include "refhost/recording/IndexFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "refhost/base/Descriptor.h"
#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr std::array<const char*, 3> databaseParts{"-wal", "-shm", ""};

// `index.db.damaged`, with a number where earlier ones exist.
std::string freeNameBeside(const std::string& database)
{
    std::string name = database + ".damaged";
    const auto isTaken = [&](const char* part)
    {
        std::error_code ignored;
        return std::filesystem::exists(name + part, ignored);
    };
    for (int number = 2; std::any_of(databaseParts.begin(), databaseParts.end(), isTaken); ++number)
    {
        name = database + ".damaged-" + std::to_string(number);
    }
    return name;
}

}  // namespace

std::string IndexFile::pathIn(const std::string& directory)
{
    return directory + "/index.db";
}

void IndexFile::setAside(const std::string& directory, const std::string& why)
{
    const std::string database = IndexFile::pathIn(directory);
    const std::string aside = freeNameBeside(database);
    std::error_code problem;
    for (const char* const part : databaseParts)
    {
        std::filesystem::rename(database + part, aside + part, problem);
    }
    if (problem)
    {
        Log::error("{} is corrupt ({}) and cannot be set aside: {}", database, Log::safe(why),
                   problem.message());
        return;
    }
    Log::warning("{} is corrupt ({}); it is kept as {} and rebuilt from the files", database, Log::safe(why),
                 std::filesystem::path(aside).filename().string());
}

void IndexFile::restrictAccess(const std::string& directory)
{
    constexpr mode_t mode = 0640;
    const std::string database = IndexFile::pathIn(directory);
    if (const Descriptor made{::open(database.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode)})
    {
        return;
    }
    for (const char* const part : databaseParts)
    {
        const std::string file = database + part;
        struct stat status
        {
        };
        const bool restricted = ::stat(file.c_str(), &status) != 0 || (status.st_mode & 0777U & ~mode) == 0 ||
                                ::chmod(file.c_str(), status.st_mode & mode) == 0;
        if (!restricted)
        {
            Log::warning("{} can be read by everybody on this machine", file);
        }
    }
}

}  // namespace refhost
