#pragma once
// Tested by tests/abi/check_symbols.py.

/// Marks what a host may use; everything else is hidden inside the shared object.
#define OV_EXPORT __attribute__((visibility("default")))

/// Hides a helper inside the shared object: a member of an exported class, or a class whose header is private
/// to the library and not installed.
#define OV_INTERNAL __attribute__((visibility("hidden")))
