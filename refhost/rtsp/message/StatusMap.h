#pragma once

#include <cstddef>
#include <string_view>

#include "refhost/rtsp/message/RtspStatus.h"

namespace refhost
{

/// Maps status codes of the library and of this host to RTSP statuses. Threads: any; constant.
class StatusMap
{
public:
    /// The operation that returned a code; the same code can mean different things.
    enum class Step
    {
        create,  ///< IRTSPControllerFactory::createMedia
        setup,   ///< IRTSPController::setup
        control  ///< every other operation
    };

    struct Row
    {
        int code;
        Step step;
        RtspStatus status;
    };

    /// \param code  what the library returned; 0 is 200 at every step
    /// \returns the RTSP status; 500 for an unknown code
    static RtspStatus ofCode(Step step, int code);

    /// The reason phrase of a status; "Unknown" for one that this server does not use.
    static std::string_view reason(int status);

    static constexpr std::size_t rowCount = 39;
    /// The table itself, for tests and documentation.
    static const Row* rows();
};

}  // namespace refhost
