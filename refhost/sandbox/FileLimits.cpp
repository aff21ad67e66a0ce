#include "refhost/sandbox/FileLimits.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "refhost/base/Descriptor.h"

namespace refhost
{
namespace
{

// The kernel's interface as of its ABI 6; the system's headers may be older. An older kernel takes the longer
// structure where what it does not know is 0.
struct RulesetAttributes
{
    std::uint64_t files;
    std::uint64_t network;
    std::uint64_t scoped;
};

struct [[gnu::packed]] PathRule
{
    std::uint64_t allowed;
    std::int32_t folder;
};

constexpr std::uint64_t right(unsigned bit)
{
    return std::uint64_t{1} << bit;
}

constexpr std::uint64_t execute = right(0);
constexpr std::uint64_t writeFile = right(1);
constexpr std::uint64_t readFile = right(2);
constexpr std::uint64_t readFolder = right(3);
constexpr std::uint64_t removeFolder = right(4);
constexpr std::uint64_t removeFile = right(5);
constexpr std::uint64_t makeDevice = right(6) | right(11);
constexpr std::uint64_t makeFolder = right(7);
constexpr std::uint64_t makeFile = right(8);
constexpr std::uint64_t makeSocket = right(9);
constexpr std::uint64_t makeFifo = right(10);
constexpr std::uint64_t makeLink = right(12);
constexpr std::uint64_t moveOut = right(13);        // from ABI 2 on
constexpr std::uint64_t truncate = right(14);       // from ABI 3 on
constexpr std::uint64_t controlDevice = right(15);  // from ABI 5 on
constexpr std::uint64_t scopeSignals = right(1);    // from ABI 6 on

constexpr std::uint64_t reading = readFile | readFolder;
constexpr std::uint64_t writing = reading | writeFile | removeFolder | removeFile | makeFolder | makeFile |
                                  makeSocket | makeFifo | makeLink | moveOut | truncate;
constexpr std::uint64_t forFiles = execute | writeFile | readFile | truncate | controlDevice;

constexpr long createRuleset = 444;
constexpr long addRule = 445;
constexpr long restrictSelf = 446;
constexpr std::uint32_t versionFlag = 1;
constexpr int belowPath = 1;

/// All rights that a kernel's ABI knows.
std::uint64_t knownRights(long abi)
{
    std::uint64_t known = reading | writing | execute | makeDevice;
    known &= abi < 2 ? ~moveOut : ~std::uint64_t{0};
    known &= abi < 3 ? ~truncate : ~std::uint64_t{0};
    return abi < 5 ? known : known | controlDevice;
}

void permit(int ruleset, const std::string& path, std::uint64_t rights)
{
    const Descriptor folder(::open(path.c_str(), O_PATH | O_CLOEXEC));
    struct stat status
    {
    };
    if (!folder || ::fstat(folder.get(), &status) != 0)
    {
        return;
    }
    const PathRule rule{S_ISDIR(status.st_mode) ? rights : rights & forFiles, folder.get()};
    ::syscall(addRule, ruleset, belowPath, &rule, 0);
}

}  // namespace

void FileLimits::read(const std::string& folder)
{
    readable_.push_back(folder);
}

void FileLimits::write(const std::string& folder)
{
    writable_.push_back(folder);
}

void FileLimits::devices(const std::string& folder)
{
    devices_.push_back(folder);
}

bool FileLimits::apply(std::string& problem) const
{
    const long abi = ::syscall(createRuleset, nullptr, 0, versionFlag);
    if (abi < 1)
    {
        // A container's filter may refuse it.
        problem =
            std::string(errno == EPERM ? "Landlock is refused here: " : "the kernel has no Landlock: ") +
            std::strerror(errno);
        return false;
    }
    const std::uint64_t known = knownRights(abi);
    const RulesetAttributes attributes{known, 0, abi < 6 ? 0 : scopeSignals};
    const Descriptor ruleset(static_cast<int>(::syscall(createRuleset, &attributes, sizeof attributes, 0)));
    if (!ruleset)
    {
        problem = std::string("no Landlock ruleset: ") + std::strerror(errno);
        return false;
    }
    for (const std::string& folder : readable_)
    {
        permit(ruleset.get(), folder, reading & known);
    }
    for (const std::string& folder : writable_)
    {
        permit(ruleset.get(), folder, writing & known);
    }
    for (const std::string& folder : devices_)
    {
        permit(ruleset.get(), folder, (writing | controlDevice) & known);
    }
    if (::syscall(restrictSelf, ruleset.get(), 0) != 0)
    {
        problem = std::string("Landlock: ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace refhost
