#pragma once
// Tested by tests/e2e/test_doctor.py.

#include <filesystem>
#include <string>

#include "refhost/config/Config.h"

namespace refhost
{

/// Whether some stream is recorded.
bool recordsAnything(const ServerConfig& config);

/// kbit/s that the configured streams record together, where their bit rates are configured.
int recordedBitRate(const ServerConfig& config);

/// A path, or the nearest folder above it that exists.
std::filesystem::path existingParent(const std::string& path);

}  // namespace refhost
