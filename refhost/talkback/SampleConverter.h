#pragma once

#include <cstdint>
#include <vector>

#include "refhost/talkback/outputs/PcmFormat.h"

struct SwrContext;

namespace refhost
{

/// Brings audio from one sample rate and number of channels to another, in pieces of any length that make one
/// continuous audio.
///
/// Threads: one at a time.
class SampleConverter
{
public:
    explicit SampleConverter(const PcmFormat& to);
    ~SampleConverter();
    SampleConverter(const SampleConverter&) = delete;
    SampleConverter& operator=(const SampleConverter&) = delete;

    /// Converts the next piece. The filter holds the last millisecond or two back until the piece after it.
    /// \param from             of `samples`; a change starts again
    /// \param[in,out] out      the converted audio is appended
    /// \returns false when that cannot be converted
    bool convert(const PcmFormat& from, const std::vector<std::int16_t>& samples,
                 std::vector<std::int16_t>& out);

    /// The next piece does not continue what came before.
    void reset();

private:
    bool prepare(const PcmFormat& from);

    const PcmFormat to_;
    PcmFormat from_;
    SwrContext* context_ = nullptr;
};

}  // namespace refhost
