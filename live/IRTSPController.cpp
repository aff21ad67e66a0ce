#include "live/IRTSPController.h"

#include "support/StatusCode.h"

IRTSPController::~IRTSPController() noexcept(false) = default;

int IRTSPController::getSessionInfo(GeneralSessionInfo&)
{
    return statusSuccess;
}

int IRTSPController::getCurRTPPacketInfo(const std::string&, const std::string&, RTPPacketInfo&)
{
    return statusSuccess;
}
