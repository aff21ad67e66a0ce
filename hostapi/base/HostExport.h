#pragma once

/// Marks what a host defines and the library links against. The library is built with hidden
/// visibility; without this mark the dynamic linker could not bind its calls to the host.
#define OV_HOST_API __attribute__((visibility("default")))
