#include "refhost/capture/SenderReports.h"

#include "refhost/base/ByteOrder.h"

namespace refhost
{
namespace
{

constexpr unsigned typeSenderReport = 200;
constexpr unsigned typeBye = 203;
constexpr std::size_t headerSize = 4;
constexpr std::size_t senderReportSize = 28;
constexpr std::int64_t nsPerSecond = 1'000'000'000;
constexpr std::uint32_t secondsFrom1900To1970 = 2'208'988'800U;
constexpr std::uint32_t eraStart = 0x80000000U;  // smaller ones count from 2036, or from a camera's own start

std::optional<std::int64_t> wallOf(std::uint32_t seconds, std::uint32_t fraction)
{
    if (seconds == 0 && fraction == 0)
    {
        return std::nullopt;
    }
    // Seconds wrap in 2036 (RFC 5905, section 6).
    const std::int64_t era = seconds < eraStart ? std::int64_t{1} << 32U : 0;
    const std::int64_t since1970 = era + seconds - std::int64_t{secondsFrom1900To1970};
    return since1970 * nsPerSecond +
           static_cast<std::int64_t>(static_cast<std::uint64_t>(fraction) * nsPerSecond >> 32U);
}

}  // namespace

void SenderReports::read(const std::uint8_t* data, std::size_t size, const OnReport& onReport,
                         const OnBye& onBye)
{
    while (size >= headerSize && data[0] >> 6U == 2)
    {
        const std::size_t length = (std::size_t{readBig16(data + 2)} + 1) * 4;
        if (length > size)
        {
            return;
        }
        if (data[1] == typeSenderReport && length >= senderReportSize)
        {
            onReport({readBig32(data + 4), readBig32(data + 16),
                      wallOf(readBig32(data + 8), readBig32(data + 12))});
        }
        else if (data[1] == typeBye && length >= headerSize + 4 && (data[0] & 0x1fU) > 0)
        {
            onBye(readBig32(data + 4));
        }
        data += length;
        size -= length;
    }
}

}  // namespace refhost
