#pragma once

#include "bench/load/LoadOptions.h"
#include "bench/load/Report.h"

namespace rtspload
{

/// Connects over TLS, asks OPTIONS and ends, again and again, from two threads.
class HandshakeRun
{
public:
    explicit HandshakeRun(const LoadOptions& options);

    /// \returns false when a handshake failed, or was not resumed as it should
    bool run(Report& report);

private:
    const LoadOptions& options_;
};

}  // namespace rtspload
