#pragma once

#include <cstddef>

namespace refhost
{

/// Fills memory with cryptographically secure random bytes of the system.
void fillRandom(void* out, std::size_t size);

}  // namespace refhost
