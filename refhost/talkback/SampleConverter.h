#pragma once

#include <cstdint>
#include <vector>

#include "refhost/talkback/outputs/PcmFormat.h"

struct SwrContext;

namespace refhost
{

/// Converts audio between sample rates and channel counts, in blocks of any length that form one continuous
/// signal.
///
/// Threads: one at a time.
class SampleConverter
{
public:
    explicit SampleConverter(const PcmFormat& to);
    ~SampleConverter();
    SampleConverter(const SampleConverter&) = delete;
    SampleConverter& operator=(const SampleConverter&) = delete;

    /// Converts the next block. The filter delays the last millisecond or two until the block after it.
    /// \param from             format of `samples`; a change resets the filter
    /// \param[in,out] out      the converted audio is appended
    /// \returns false when the format cannot be converted
    bool convert(const PcmFormat& from, const std::vector<std::int16_t>& samples,
                 std::vector<std::int16_t>& out);

    /// The next block does not continue the previous one.
    void reset();

private:
    bool prepare(const PcmFormat& from);

    const PcmFormat to_;
    PcmFormat from_;
    SwrContext* context_ = nullptr;
};

}  // namespace refhost
