#pragma once
// Tested by tests/abi/check_symbols.py.

/// Marks what the library lets a host use; everything else stays hidden inside the shared object.
#define OV_EXPORT __attribute__((visibility("default")))

/// Keeps a helper inside the shared object: a member of an exported class, or a class whose whole header then
/// is the library's own and not installed.
#define OV_INTERNAL __attribute__((visibility("hidden")))
