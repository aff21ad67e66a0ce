#pragma once

#include "tests/refhost/rtp/payload/H264Units.h"

namespace refhost
{
namespace test
{
namespace h264
{

/// A reception whose markers are believed: one key frame was received whole.
class Believed : public Reception
{
public:
    explicit Believed(bool withSets = true) : Reception(track(withSets))
    {
        push(sps, 0, false);
        push(pps, 0, false);
        push(idr(), 0, true);
        push(p(), 3000, true);
        units.clear();
    }
};

}  // namespace h264
}  // namespace test
}  // namespace refhost
