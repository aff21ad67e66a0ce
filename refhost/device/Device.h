#pragma once

#include <memory>

#include "refhost/live/StreamSource.h"

namespace refhost
{

/// Where the classes of the host contract find this process's streams.
class Device
{
public:
    /// Sets the streams; before the first request, and null again after the last. A test sets its own.
    static void setStreams(std::shared_ptr<StreamDirectory> streams);

    /// \returns null before setStreams()
    static std::shared_ptr<StreamDirectory> streams();
};

}  // namespace refhost
