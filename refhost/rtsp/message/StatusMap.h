#pragma once

#include <cstddef>
#include <string_view>

#include "refhost/rtsp/message/RtspStatus.h"

namespace refhost
{

/// The one table from the codes of the library and of this host to what a client is answered.
/// Threads: any; constant.
class StatusMap
{
public:
    /// At which operation of a controller a code came back; the same code can mean different things.
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
    /// \returns 500 for a code that the table does not know
    static RtspStatus ofCode(Step step, int code);

    /// The reason phrase of a status; "Unknown" for one that this server never answers.
    static std::string_view reason(int status);

    static constexpr std::size_t rowCount = 39;
    /// The table itself, for tests and documentation.
    static const Row* rows();
};

}  // namespace refhost
