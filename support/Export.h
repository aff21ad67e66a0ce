#pragma once

/// Marks what the library lets a host use; everything else stays hidden inside the shared object.
#define OV_EXPORT __attribute__((visibility("default")))

/// Keeps a helper of an exported class inside the shared object.
#define OV_INTERNAL __attribute__((visibility("hidden")))
