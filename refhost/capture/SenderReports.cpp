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
            const NtpTime sent(readBig32(data + 8), readBig32(data + 12));
            onReport({readBig32(data + 4), readBig32(data + 16),
                      sent.known() ? std::optional(sent.wallTime()) : std::nullopt, sent});
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
