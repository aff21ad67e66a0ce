// Any datagram as a compound RTCP packet from a client.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "refhost/rtp/RtcpReader.h"

namespace
{

constexpr std::uint32_t ssrc = 0xaabbccdd;

void require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

/// Whether the packet contains the bytes of `ssrc`.
bool mentions(const std::uint8_t* data, std::size_t size)
{
    for (std::size_t at = 0; at + 4 <= size; ++at)
    {
        if (data[at] == 0xaa && data[at + 1] == 0xbb && data[at + 2] == 0xcc && data[at + 3] == 0xdd)
        {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    refhost::RtcpFindings findings;
    findings.report.jitter = 4711;
    if (!refhost::RtcpReader::read(data, size, ssrc, findings))
    {
        require(findings.report.jitter == 4711 && !findings.reported && !findings.bye,
                "a refused packet changes nothing");
        return 0;
    }
    require(size >= 8 && size % 4 == 0, "a compound packet consists of whole words");
    require(data[1] == 200 || data[1] == 201, "a compound packet starts with a report");
    require(!findings.reported || mentions(data, size), "a report about us names us");
    require(findings.report.cumulativeLost >= -0x800000 && findings.report.cumulativeLost < 0x800000,
            "the loss has 24 bits");
    return 0;
}
