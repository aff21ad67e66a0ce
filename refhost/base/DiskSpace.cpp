#include "refhost/base/DiskSpace.h"

#include <sys/statvfs.h>

#include <algorithm>

#include "refhost/base/Decimal.h"
#include "refhost/base/Quantity.h"

namespace refhost
{
namespace
{

constexpr double automaticShare = 0.05;
constexpr std::int64_t automaticBytes = std::int64_t{1} << 30;
constexpr int maxPercent = 99;

}  // namespace

std::optional<DiskSpace> DiskSpace::of(const std::string& path)
{
    struct statvfs disk
    {
    };
    if (::statvfs(path.c_str(), &disk) != 0)
    {
        return std::nullopt;
    }
    const auto block = static_cast<std::int64_t>(disk.f_frsize);
    DiskSpace space;
    space.capacity = static_cast<std::int64_t>(disk.f_blocks) * block;
    space.available = static_cast<std::int64_t>(disk.f_bavail) * block;
    space.files = static_cast<std::int64_t>(disk.f_files);
    space.availableFiles = static_cast<std::int64_t>(disk.f_favail);
    return space;
}

std::optional<FreeSpace> FreeSpace::parse(std::string_view text)
{
    FreeSpace space;
    if (text == "auto")
    {
        space.share_ = automaticShare;
        space.bytes_ = automaticBytes;
        space.lesser_ = true;
        return space;
    }
    if (!text.empty() && text.back() == '%')
    {
        const auto percent = parseDecimal<int>(text.substr(0, text.size() - 1), maxPercent);
        space.share_ = percent.value_or(0) / 100.0;
        return percent ? std::make_optional(space) : std::nullopt;
    }
    const auto bytes = text == "0" ? std::make_optional<std::int64_t>(0) : parseSize(text);
    space.bytes_ = bytes.value_or(0);
    return bytes ? std::make_optional(space) : std::nullopt;
}

std::int64_t FreeSpace::bytesOf(std::int64_t capacity) const
{
    const auto share = static_cast<std::int64_t>(static_cast<double>(capacity) * share_);
    return lesser_ ? std::min(share, bytes_) : std::max(share, bytes_);
}

}  // namespace refhost
