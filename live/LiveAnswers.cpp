#include "live/LiveAnswers.h"

#include "support/StatusCode.h"

namespace
{

// How a live stream answers a question for its range; hosts know it by this pair.
const double liveRangeStart = -100.0;
const double liveRangeEnd = -99.0;

}  // namespace

LiveAnswers::LiveAnswers() = default;

LiveAnswers::~LiveAnswers() noexcept(false) = default;

int LiveAnswers::mediaInit()
{
    return statusSuccess;
}

int LiveAnswers::setPlayRange(const std::string&, const std::string&, double, double, int, bool)
{
    return statusSuccess;
}

int LiveAnswers::getCurPlayRange(const std::string&, const std::string&, double& start, double& end)
{
    start = liveRangeStart;
    end = liveRangeEnd;
    return statusSuccess;
}

int LiveAnswers::correctPlayRange(const std::string&, const std::string&, double, double, double& outStart,
                                  double& outEnd)
{
    outStart = liveRangeStart;
    outEnd = liveRangeEnd;
    return statusSuccess;
}

int LiveAnswers::setPauseRange(const std::string&, const std::string&, double)
{
    return statusSuccess;
}

int LiveAnswers::getConnetionState(std::string, std::string, bool& connected)
{
    connected = true;
    return statusSuccess;
}

int LiveAnswers::setSpeed(const std::string&, const std::string&, double, double)
{
    return statusSuccess;
}

void LiveAnswers::setRTCPFrequence(const std::string&, const std::string&, int) {}
