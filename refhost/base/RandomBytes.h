#pragma once

#include <cstddef>

namespace refhost
{

/// Fills memory with random numbers that nobody can guess, from the system.
void fillRandom(void* out, std::size_t size);

}  // namespace refhost
